#include "suite/tools/KTIsoTime.h"

#include <cstdio>

namespace
{
constexpr std::string_view form = "dddd-dd-ddTdd:dd:ddZ";  // d is a digit

bool HasForm(std::string_view text)
{
    if (text.size() != form.size()) return false;
    for (std::size_t i = 0; i < form.size(); ++i)
        if (form[i] == 'd' ? text[i] < '0' || text[i] > '9' : text[i] != form[i]) return false;
    return true;
}

int Number(std::string_view digits)
{
    int number = 0;
    for (const char digit : digits) number = number * 10 + (digit - '0');
    return number;
}
}  // namespace

std::string kt::IsoTime(const KTDateTime& date)
{
    if (!date.Valid()) return {};
    char text[40];
    (void)std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", date.Year(), date.Month(), date.Day(),
                        date.Hour(), date.Minute(), date.Second());
    return text;
}

bool kt::ParseIsoTime(std::string_view text, KTDateTime& date)
{
    if (!HasForm(text)) return false;
    const auto field = [text](std::size_t at, std::size_t length) { return Number(text.substr(at, length)); };
    const KTDateTime read(field(0, 4), field(5, 2), field(8, 2), field(11, 2), field(14, 2), field(17, 2), 0, 0);
    if (!read.Valid()) return false;
    date = read;
    return true;
}
