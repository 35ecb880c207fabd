// Short ways between the literals of a test and the texts and identifiers of the system.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "host/KTDateTime.h"
#include "host/KTGuid.h"
#include "host/KTString.h"
#include "host/KTText.h"

inline KTWideString Wide(const std::string& utf8)
{
    KTWideString out;
    Utf8ToUtf16(out, KTNarrowString(utf8.c_str(), false));
    return out;
}

inline std::string Utf8(const KTWideString& text)
{
    KTNarrowString out;
    Utf16ToUtf8(out, text);
    return out.Str();
}

/// An identifier that a test can tell from others by its number; 0 is the null one.
inline GUID TestId(unsigned number)
{
    GUID id;
    if (number == 0) return id;
    id.Data1 = number;
    id.Data4[7] = 1;
    return id;
}

inline std::string Text(const GUID& id)
{
    char buffer[guidTextSize];
    return guidtoc(id, buffer);
}

/// "2024-03-10 08:00:00.000000", or "invalid".
inline std::string Text(const KTDateTime& date)
{
    if (!date.Valid()) return "invalid";
    char buffer[64];
    KTFormat(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d.%06d", date.Year(), date.Month(), date.Day(),
             date.Hour(), date.Minute(), date.Second(), date.USecondInS());
    return buffer;
}

/// A date of whole seconds.
inline KTDateTime Date(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return {year, month, day, hour, minute, second, 0, 0};
}

inline void PrintTo(const KTWideString& text, std::ostream* out) { *out << '"' << Utf8(text) << '"'; }
inline void PrintTo(const KTNarrowString& text, std::ostream* out) { *out << '"' << text.Str() << '"'; }
inline void PrintTo(const GUID& id, std::ostream* out) { *out << Text(id); }
inline void PrintTo(const KTDateTime& date, std::ostream* out) { *out << Text(date); }
