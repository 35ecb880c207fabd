// The texts of the program in the language of the settings.
#pragma once

#include <string>

#include "host/KTString.h"

/// The language in force.
///
/// Format:  resources/LANGUAGE.tsv: UTF-8, one text a line, KEY<TAB>TEXT; the key is a string id, or a word such as E40.
///          Lines that are empty or begin with # are left out; \n, \t and \\ are the escapes of TEXT.
/// Errors:  a text that the language lacks comes in English, one that English lacks too is empty.
/// Threads: any, Load included; a reader sees the old language or the new one.
/// Memory:  a language that was replaced is kept until the end of the process, since readers may still stand in it.
class KTLanguage
{
public:
    /// Puts a language in force, from `directory` or, with an empty one, as installed. "es-ES" is also content with the
    /// texts of "es". False with `error` when there is no such language or its file has a mistake ("FILE:LINE: reason");
    /// the language of before then stays.
    static bool Load(const std::string& directory, const std::string& language, std::string& error);

    /// Where the texts lie as installed: share/corvane/resources beside the program's own directory.
    static std::string InstalledDirectory();
};

/// The text of a key: "607", "E40". False, with an empty text, for an unknown one. Loads English when nothing was loaded
/// before.
bool KTLoadText(const char* key, KTWideString& out);
