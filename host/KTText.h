// Conversions between the text forms, comparisons that ignore case, and the language texts.
#pragma once

#include "host/KTString.h"

/// Ill-formed input becomes U+FFFD and never stops a conversion; `out` is replaced. Utf16ToUtf8 joins surrogate pairs, and
/// takes one element above 0xFFFF as the code point it is.
void Utf16ToUtf8(KTNarrowString& out, const KTWideString& in);
void Utf8ToUtf16(KTWideString& out, const KTNarrowString& in);

/// Escapes & < > " ' for use in XML and drops what XML 1.0 can't hold: everything below 0x20 but tab, LF and CR.
/// Replaces `out`, which may be `in`.
void Text2Xml(KTNarrowString& out, const KTNarrowString& in);

/// The inverse: the five named entities and numeric references; any other `&` stays as it is.
void Xml2Text(KTNarrowString& out, const KTNarrowString& in);
void Xml2Text(KTWideString& out, const KTWideString& in);

/// XML text to wide text, for the labels of a variable's states. Replaces and returns `out`.
KTWideString& ParseXMLText(const KTNarrowString& in, KTWideString& out);

/// The text of a language resource in the current language; empty for an unknown id. Replaces and returns `out`.
/// Threads: any, once the language is loaded.
KTWideString& KTLoadString(int id, KTWideString& out);
KTWideString& StringId2String(int id, KTWideString& out);

/// Less than, equal to or greater than 0; folds case by simple Unicode lower-casing, in no locale.
int _wcsicmp(const wchar_t* a, const wchar_t* b);

/// Leading blanks, a sign, then decimal digits as far as they go; nothing readable is 0; beyond 32 bits it stops at the
/// largest or smallest int.
int _wtoi(const wchar_t* text);

/// printf into `size` characters, terminator included; what doesn't fit is cut off. `%s` takes wide text in the wide form
/// and narrow text in the narrow one, on every platform. Returns the characters written, without the terminator.
int KTFormat(wchar_t* out, int size, const wchar_t* format, ...);
int KTFormat(char* out, int size, const char* format, ...) __attribute__((format(printf, 3, 4)));

/// A name that may serve as an identifier: 1 to 250 characters, letters and digits of any script, `_ - + ( ) # &` and,
/// with `allowBlank`, blanks inside but neither first nor last.
bool IsValidId(const wchar_t* text, bool allowBlank);
