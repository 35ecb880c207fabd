// Where the files of an event lie.
#pragma once

#include "host/KTString.h"

/// The tree below the data path: a directory a year, in it one a month, in that the files of the events.
///
/// Units:   years have four digits, months run from 1 to 12.
/// Threads: any.
namespace kt
{
inline constexpr int longestPath = 260;      // characters, terminator included
inline constexpr int longestFileName = 255;  // bytes of UTF-8: what file systems take

KTWideString YearDirectory(int year);              // ends in a separator
KTWideString MonthDirectory(int year, int month);  // the same

/// "NAME 03-2007", what the names of the event's files of a month begin with. Characters of the event's name that would
/// leave the directory become `_`.
KTWideString EventFileTitle(const KTWideString& eventName, int year, int month);

/// The path of a file in its month's directory; the empty text where it doesn't fit, in characters or in bytes.
KTWideString EventFilePath(const KTWideString& fileName, int year, int month);
}  // namespace kt
