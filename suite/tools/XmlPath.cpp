#include "suite/tools/XmlPath.h"

#include <cstring>

namespace
{
using Node = XmlDocument::XmlNode;

struct Text
{
    const wchar_t* at = nullptr;
    std::size_t length = 0;
};

struct Step
{
    Text tag;
    bool selects = false;
    Text key;
    Text value;
};

bool TagIs(const Node& node, const Text& tag)
{
    const KTWideString& itsTag = *kt::XmlTree::Tag(node);
    return static_cast<std::size_t>(itsTag.Length()) == tag.length &&
           std::memcmp(itsTag.Str(), tag.at, tag.length * sizeof(wchar_t)) == 0;
}

// The characters up to one of the three, or to the end.
Text TakeUntil(const wchar_t*& at, wchar_t a, wchar_t b)
{
    Text text{at, 0};
    while (*at != L'\0' && *at != a && *at != b) ++at;
    text.length = static_cast<std::size_t>(at - text.at);
    return text;
}

bool TakeSelector(const wchar_t*& at, Step& step)
{
    step.selects = true;
    step.key = TakeUntil(at, L'=', L'?');
    if (*at != L'=' || step.key.length == 0) return false;
    step.value.at = ++at;
    while (*at != L'\0' && !(*at == L'?' && (at[1] == L'/' || at[1] == L'\0'))) ++at;
    if (*at != L'?') return false;
    step.value.length = static_cast<std::size_t>(at - step.value.at);
    ++at;
    return true;
}

// The step at `at`, and `at` behind it. False when it is none.
bool TakeStep(const wchar_t*& at, Step& step)
{
    step = Step();
    step.tag = TakeUntil(at, L'/', L'?');
    if (step.tag.length == 0) return false;
    if (*at != L'?') return true;
    ++at;
    return TakeSelector(at, step);
}

bool Matches(const Node& node, const Step& step)
{
    if (!TagIs(node, step.tag)) return false;
    if (!step.selects) return true;
    const Node* const key = kt::FindChild(node, step.key.at, step.key.length);
    return key != nullptr && kt::XmlTree::TextIs(*key, step.value.at, step.value.length);
}

const Node* FindStep(const Node& parent, const Step& step)
{
    for (const Node* const child : kt::XmlTree::Children(parent))
        if (Matches(*child, step)) return child;
    return nullptr;
}
}  // namespace

const Node* kt::FindChild(const Node& parent, const wchar_t* tag, std::size_t length)
{
    for (const Node* const child : XmlTree::Children(parent))
        if (TagIs(*child, {tag, length})) return child;
    return nullptr;
}

const Node* kt::FindPath(const Node& from, const wchar_t* path)
{
    if (*path == L'/') ++path;
    const Node* node = &from;
    for (;;)
    {
        Step step;
        if (!TakeStep(path, step)) return nullptr;
        node = FindStep(*node, step);
        if (node == nullptr || *path == L'\0') return node;
        ++path;  // the slash
    }
}
