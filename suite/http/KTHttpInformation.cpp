#include "suite/http/KTHttpInformation.h"

#include <string_view>

#include "host/KTCorvaneSetup.h"
#include "host/KTHttp.h"
#include "host/KTText.h"

namespace
{
std::string NamesXml(const std::string& root, const std::string& list, const std::string& item,
                     const std::vector<std::string>& names)
{
    std::string out = R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)";
    out += '<' + root + "><" + list + '>';
    KTNarrowString escaped;
    for (const std::string& name : names)
    {
        Text2Xml(escaped, KTNarrowString(name.c_str()));
        out += '<' + item + '>' + escaped.Str() + "</" + item + '>';
    }
    return out + "</" + list + "></" + root + '>';
}

std::vector<std::string> Utf8(const std::vector<KTWideString>& names)
{
    std::vector<std::string> out;
    KTNarrowString name;
    for (const KTWideString& wide : names)
    {
        Utf16ToUtf8(name, wide);
        out.emplace_back(name.Str());
    }
    return out;
}
}  // namespace

std::string ScadaInformation(const std::vector<std::string>& screens)
{
    return NamesXml("scadaInformation", "screens", "screen", screens);
}

std::string ReportInformation(const std::vector<std::string>& reports)
{
    return NamesXml("reportInformation", "reports", "report", reports);
}

bool HttpGet(int /*kind*/, const wchar_t* /*user*/, const char* path, KTNarrowString& reply)
{
    const KTCorvaneSetup& setup = KTCorvaneSetup::Get();
    const std::string_view asked = path;
    if (asked == "/services/scadas/information.xml")
        reply = ScadaInformation(Utf8(setup.Screens())).c_str();
    else if (asked == "/services/reports/information.xml")
        reply = ReportInformation(Utf8(setup.Reports())).c_str();
    else
        return false;
    return true;
}
