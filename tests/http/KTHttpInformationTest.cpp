#include "suite/http/KTHttpInformation.h"

#include <gtest/gtest.h>

#include "host/KTCorvaneSetup.h"
#include "host/KTHttp.h"
#include "host/XmlDocument.h"

TEST(KTHttpInformation, NamesScreensAndReportsInTheirOrder)
{
    EXPECT_EQ(
        ScadaInformation({}),
        R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?><scadaInformation><screens></screens></scadaInformation>)");
    EXPECT_EQ(ReportInformation({"b", "a & \"c\""}),
              R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?><reportInformation><reports><report>b</report>)"
              R"(<report>a &amp; &quot;c&quot;</report></reports></reportInformation>)");
}

TEST(KTHttpInformation, GivesTheEditorsTheDocumentsOfTheInstalledSettings)
{
    KTSetupData data;
    data.screens = {KTWideString(L"Main"), KTWideString(L"Kühlhaus <2>")};
    data.reports = {KTWideString(L"Daily")};
    KTCorvaneSetup::Get().Configure(data);
    KTNarrowString reply;
    ASSERT_TRUE(HttpGet(1, L"SYSTEM", "/services/scadas/information.xml", reply));
    XmlDocument document;
    ASSERT_TRUE(document.Parse(reply.Str()));
    ASSERT_TRUE(document.Root()->Tag() == L"scadaInformation");
    const XmlDocument::XmlNode* screens = document.Root()->Node(L"screens");
    ASSERT_NE(screens, nullptr);
    ASSERT_EQ(screens->Size(), 2);
    EXPECT_TRUE((*screens->ChildsBegin())->Tag() == L"screen");
    EXPECT_TRUE((*screens->ChildsBegin())->Value() == L"Main");
    EXPECT_TRUE((*std::next(screens->ChildsBegin()))->Value() == L"Kühlhaus <2>");

    ASSERT_TRUE(HttpGet(1, L"SYSTEM", "/services/reports/information.xml", reply));
    ASSERT_TRUE(document.Parse(reply.Str()));
    EXPECT_TRUE(document.Root()->Tag() == L"reportInformation");
    EXPECT_FALSE(HttpGet(1, L"SYSTEM", "/services/others.xml", reply));
    KTCorvaneSetup::Get().Configure({});
}
