#include "suite/http/KTHttpLogger.h"

#include <string>
#include <string_view>

#include "suite/tools/KTIsoTime.h"

namespace
{
constexpr int firstYear = 2000;
constexpr int lastYear = 2063;

// "DDMMYYYYhhmmss", as the dates of the replies, or the form of programs.
bool ParseDate(std::string_view text, KTDateTime& date)
{
    constexpr std::size_t compactLength = 14;
    if (text.size() != compactLength) return kt::ParseIsoTime(text, date);
    std::string iso;
    iso.append(text.substr(4, 4)).append("-").append(text.substr(2, 2)).append("-").append(text.substr(0, 2));
    iso.append("T").append(text.substr(8, 2)).append(":").append(text.substr(10, 2));
    iso.append(":").append(text.substr(12, 2)).append("Z");
    return kt::ParseIsoTime(iso, date);
}

// True, or false with the reason in `why`.
bool TakeDate(const KTHttpCall& call, const std::string& name, KTDateTime& date, std::string& why)
{
    const std::string* const text = FindPair(call.query, name);
    if (text == nullptr)
    {
        why = "The query lacks `" + name + "`.";
        return false;
    }
    if (!ParseDate(*text, date))
        why = "`" + name + "` has to be a date in UTC, as DDMMYYYYhhmmss or YYYY-MM-DDThh:mm:ssZ.";
    else if (date.Year() < firstYear || date.Year() > lastYear)
        why = "`" + name + "` lies outside the years 2000 to 2063.";
    return why.empty();
}
}  // namespace

void ServeLogger(const KTHttpServices& services, KTHttpCall& call, KTHttpAnswer& answer)
{
    KTDateTime begin;
    KTDateTime end;
    std::string why;
    if (!TakeDate(call, "begin", begin, why) || !TakeDate(call, "end", end, why)) return answer.Text(400, why);
    if (end <= begin) return answer.Text(400, "`end` has to be later than `begin`.");
    ServeDocument([&](KTHttpRequest& request, KTHttpResponse& response)
                  { return services.logger(request, response, begin, end); },
                  call, answer);
}
