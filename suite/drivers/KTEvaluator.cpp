#include "host/KTEvaluator.h"

#include <string>

#include "suite/drivers/KTExpressionCompiler.h"
#include "suite/drivers/KTExpressionParser.h"
#include "suite/drivers/KTPolacaProgram.h"
#include "suite/support/KTLanguage.h"
#include "suite/tools/KTSlabs.h"

void* KTEvaluator::operator new(std::size_t bytes) { return KTSlabs::Allocate(bytes); }

void KTEvaluator::operator delete(void* block) noexcept { KTSlabs::Free(block); }

void KTEvaluator::Set(const wchar_t* expression)
{
    text = expression;
    polaca.program.reset();
}

void KTEvaluator::Clear()
{
    text.Clear();
    polaca.program.reset();
}

int KTEvaluator::AnalizeExpression()
{
    polaca.program.reset();
    KTExpression expression;
    if (!KTExpressionParser::Parse(text.Str(), text.Length(), expression)) return -1;
    polaca.program = KTPolaca::Program::Make(KTExpressionCompiler(expression));
    return polaca.program->kind;
}

bool KTEvaluator::ErrorMsg(int code, KTWideString& out)
{
    return KTLoadText(("E" + std::to_string(code)).c_str(), out);
}
