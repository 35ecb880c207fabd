// Any bytes as a document: what parses can be walked, copied, searched, changed, written and read again.
//
// fuzz_xml -dict=fuzz/xml/xml.dict fuzz/xml/corpus

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/XmlDocument.h"
#include "suite/tools/XmlReader.h"

namespace
{
using Node = XmlDocument::XmlNode;

void Require(bool condition)
{
    if (!condition) std::abort();
}

std::string CodeOf(const XmlDocument& document)
{
    KTNarrowString out;
    document.CreateXmlCode(out, true);
    return {out.Str(), static_cast<std::size_t>(out.Length())};
}

XmlDocument Reparsed(const std::string& code)
{
    XmlDocument document;
    Require(document.Parse(code.c_str()));
    return document;
}

// Each node's text by value and by reference, and each child by its tag.
std::vector<Node*> Walk(Node& root)
{
    std::vector<Node*> nodes{&root};
    for (std::size_t i = 0; i < nodes.size(); ++i)
    {
        Node& node = *nodes[i];
        int children = 0;
        for (auto at = node.ChildsBegin(); at != node.ChildsEnd(); ++at, ++children)
        {
            nodes.push_back(*at);
            const Node* const first = node.Node((*at)->Tag().Str());
            Require(first != nullptr && first->Tag() == (*at)->Tag());
            Require(node.Value((*at)->Tag().Str(), L"?") == first->Value());
        }
        Require(children == node.Size());
    }
    return nodes;
}

void Change(XmlDocument& document, const std::vector<Node*>& nodes)
{
    Node& middle = *nodes[nodes.size() / 2];
    Node& last = *nodes.back();
    last.SetValue(L"new & <text>");
    middle.SetValue(L"child", L"text");
    *document.Root()->NewChild(L"copy") = middle;
    *document.Root()->NewChild(L"root") = *document.Root();
    if (document.Root()->Size() > 3) document.Root()->RemoveChild(*document.Root()->ChildsBegin());
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    kt::XmlStore store;
    kt::XmlReader reader(store);
    if (!reader.Read(reinterpret_cast<const char*>(data), size)) return 0;

    XmlDocument document(*reader.Root());
    const std::string code = CodeOf(document);
    Require(CodeOf(Reparsed(code)) == code);

    const std::vector<Node*> nodes = Walk(*document.Root());
    Require(CodeOf(document) == code);
    Change(document, nodes);
    const std::string changed = CodeOf(document);
    Require(CodeOf(XmlDocument(document)) == changed);
    Require(CodeOf(Reparsed(changed)) == changed);
    return 0;
}
