#include "engine/KTAnnotationArguments.h"

namespace
{
// An annotation shows a few arguments; a document of thousands doesn't get an evaluator kept for each.
constexpr std::size_t mostKept = 32;
}  // namespace

bool KTAnnotationArguments::Use::Evaluate(std::size_t index, const KTWideString& text, double& value)
{
    Compiled spare;
    Compiled& compiled = Find(index, text, spare);
    int kind = 0;
    return compiled.numeric && compiled.evaluator.polaca.Evaluate(value, kind) == KTPolaca::success;
}

KTAnnotationArguments::Compiled& KTAnnotationArguments::Use::Find(std::size_t index, const KTWideString& text,
                                                                  Compiled& spare)
{
    Compiled* compiled = &spare;
    if (index < mostKept)
    {
        if (!all) all.reset(place.exchange(nullptr, std::memory_order_acq_rel));
        if (!all) all = std::make_unique<All>();
        if (all->size() <= index) all->resize(index + 1);
        std::unique_ptr<Compiled>& own = (*all)[index];
        if (!own) own = std::make_unique<Compiled>();
        if (!text.Empty() && own->evaluator.Text() == text) return *own;
        compiled = own.get();
    }
    compiled->evaluator.mode = 4;
    compiled->evaluator.polaca.mode = 4;
    compiled->evaluator.Set(text.Str());
    compiled->numeric = compiled->evaluator.AnalizeExpression() == 0;
    return *compiled;
}
