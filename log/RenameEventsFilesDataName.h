// The log files of an event follow it to its new name.
#pragma once

#include "host/XmlDocument.h"

/// Compares the `events` element of a configuration before and after a change, and renames the files of the event whose
/// name has changed.
///
/// One event a call, and no more than the current year: the first event of `oldEvents` that bears another name in
/// `newEvents` has its files from the current month (UTC) back to January renamed. Where the current year has no directory
/// yet, it is the year before instead, from the same month back, and so on down to 2000. Files of other years and of further
/// events stay under their old names.
///
/// A file whose new name is taken stays, and so do both files of an event that was deleted.
///
/// Returns true if no rename failed; also with null for either node.
/// Threads: any, while the event isn't being written.
bool RenameEventsFilesDataName(const XmlDocument::XmlNode* oldEvents, const XmlDocument::XmlNode* newEvents);
