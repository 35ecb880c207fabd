// Paths such as "events/event?name=Pump?".
#pragma once

#include "suite/tools/XmlTree.h"

namespace kt
{
/// The node that `path` leads to from `from`, or null. An empty path or step leads nowhere. A selector's value ends at the
/// first `?` that stands before a `/` or at the end, so it may hold both.
///
/// Errors:  none; a path that makes no sense leads nowhere.
/// Threads: any number, while nobody changes the document.
const XmlDocument::XmlNode* FindPath(const XmlDocument::XmlNode& from, const wchar_t* path);

/// The first child of that tag, or null.
const XmlDocument::XmlNode* FindChild(const XmlDocument::XmlNode& parent, const wchar_t* tag, std::size_t length);
}  // namespace kt
