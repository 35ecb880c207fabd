#include "host/KTCorvaneSetup.h"

#include "host/KTText.h"
#include "suite/support/KTExecutable.h"

namespace
{
bool PlaceOf(const std::vector<KTWideString>& names, const wchar_t* name, int& id)
{
    for (std::size_t i = 0; i < names.size(); ++i)
        if (names[i] == name)
        {
            id = static_cast<int>(i);
            return true;
        }
    return false;
}
}  // namespace

KTCorvaneSetup& KTCorvaneSetup::Get()
{
    static KTCorvaneSetup setup;
    return setup;
}

KTWideString& GetAppPath(KTWideString& out)
{
    const KTWideString& configured = KTCorvaneSetup::Get().AppPath();
    if (!configured.Empty()) return out = configured;
    Utf8ToUtf16(out, KTNarrowString((ExecutableDirectory() + '/').c_str()));
    return out;
}

bool ScreenName2Id(const wchar_t* name, int& id) { return PlaceOf(KTCorvaneSetup::Get().Screens(), name, id); }
bool ReportName2Id(const wchar_t* name, int& id) { return PlaceOf(KTCorvaneSetup::Get().Reports(), name, id); }
