// Paths such as "events/event?name=Pump?".
#pragma once

#include <cstddef>

#include "suite/tools/XmlTree.h"

namespace kt
{
/// A piece of a path; it lives as long as the path.
struct XmlPiece
{
    const wchar_t* at = nullptr;
    std::size_t length = 0;
};

/// One step of a path: a tag, and where it selects also a key and its value.
struct XmlStep
{
    XmlPiece tag;
    bool selects = false;
    XmlPiece key;
    XmlPiece value;
};

/// The node that `path` leads to from `from`, or null. An empty path or step leads nowhere. A selector's value ends at the
/// first `?` that stands before a `/` or at the end, so it may hold both.
///
/// Errors:  none; a path that makes no sense leads nowhere.
/// Threads: any number, while nobody changes the document.
const XmlDocument::XmlNode* FindPath(const XmlDocument::XmlNode& from, const wchar_t* path);

/// The first child of that tag, or null.
const XmlDocument::XmlNode* FindChild(const XmlDocument::XmlNode& parent, const XmlPiece& tag);

bool TagIs(const XmlDocument::XmlNode& node, const XmlPiece& tag);
}  // namespace kt
