#include "suite/tools/XmlPath.h"

#include <cstring>
#include <mutex>

#include "suite/tools/XmlIndex.h"

namespace
{
using kt::XmlPiece;
using kt::XmlStep;
using Node = XmlDocument::XmlNode;

// The characters up to one of the three, or to the end.
XmlPiece TakeUntil(const wchar_t*& at, wchar_t a, wchar_t b)
{
    XmlPiece piece{at, 0};
    while (*at != L'\0' && *at != a && *at != b) ++at;
    piece.length = static_cast<std::size_t>(at - piece.at);
    return piece;
}

bool TakeSelector(const wchar_t*& at, XmlStep& step)
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
bool TakeStep(const wchar_t*& at, XmlStep& step)
{
    step = XmlStep();
    step.tag = TakeUntil(at, L'/', L'?');
    if (step.tag.length == 0) return false;
    if (*at != L'?') return true;
    ++at;
    return TakeSelector(at, step);
}

// From this many children on, selectors are worth an index.
constexpr std::size_t longList = 32;

bool Matches(const Node& node, const XmlStep& step)
{
    if (!kt::TagIs(node, step.tag)) return false;
    if (!step.selects) return true;
    const Node* const key = kt::FindChild(node, step.key);
    return key != nullptr && kt::XmlTree::TextIs(*key, step.value.at, step.value.length);
}

// The first match, and how many children were looked at for it.
const Node* FindByLooking(const Node& parent, const XmlStep& step, std::size_t& looked)
{
    for (const Node* const child : kt::XmlTree::Children(parent))
    {
        ++looked;
        if (Matches(*child, step)) return child;
    }
    return nullptr;
}

const Node* FindStep(const Node& parent, const XmlStep& step)
{
    std::size_t looked = 0;
    if (!step.selects || kt::XmlTree::Children(parent).size() < longList) return FindByLooking(parent, step, looked);

    kt::XmlStore& store = kt::XmlStore::Of(&parent);
    {
        const std::lock_guard guard(store.SharedMutex());
        if (const kt::XmlIndex* const index = store.Indexes().Find(parent, step, store.Version()); index != nullptr)
            return index->Find(step);
    }
    const Node* const found = FindByLooking(parent, step, looked);
    const std::lock_guard guard(store.SharedMutex());
    store.Indexes().Count(parent, step, store.Version(), looked);
    return found;
}
}  // namespace

bool kt::TagIs(const Node& node, const XmlPiece& tag)
{
    const KTWideString& itsTag = *XmlTree::Tag(node);
    return static_cast<std::size_t>(itsTag.Length()) == tag.length &&
           std::memcmp(itsTag.Str(), tag.at, tag.length * sizeof(wchar_t)) == 0;
}

const Node* kt::FindChild(const Node& parent, const XmlPiece& tag)
{
    for (const Node* const child : XmlTree::Children(parent))
        if (TagIs(*child, tag)) return child;
    return nullptr;
}

const Node* kt::FindPath(const Node& from, const wchar_t* path)
{
    if (*path == L'/') ++path;
    const Node* node = &from;
    for (;;)
    {
        XmlStep step;
        if (!TakeStep(path, step)) return nullptr;
        node = FindStep(*node, step);
        if (node == nullptr || *path == L'\0') return node;
        ++path;  // the slash
    }
}
