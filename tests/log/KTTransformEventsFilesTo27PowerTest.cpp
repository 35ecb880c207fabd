// A power cut at every single operation of a conversion: whoever runs it again has every record.

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "TestRegistry.h"
#include "log/KTBigEndian.h"
#include "log/KTEventFile.h"
#include "log/KTTransformEventsFilesTo27.h"
#include "support/FaultyFiles.h"

namespace
{
constexpr unsigned occurrences = 30;

std::string Big(std::uint64_t value, int size)
{
    std::string bytes;
    for (int i = size - 1; i >= 0; --i) bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string Bytes(const GUID& guid)
{
    std::uint8_t bytes[16];
    kt::PutGuid(bytes, guid);
    return {bytes, bytes + sizeof bytes};
}

std::string TextOf(unsigned occurrence)
{
    return occurrence % 3 == 0 ? "" : std::string(occurrence * 40, static_cast<char>('a' + occurrence % 26));
}

class TransformPower : public testing::Test
{
protected:
    // Two months of two events, one after the other.
    void PutOldFiles()
    {
        files.Clear();
        files.Put(data + "lock", "");
        for (const int month : {4, 5})
        {
            std::string records = "EVENTv1.000";
            std::string texts = "ANNOTATIONS";
            for (unsigned i = 1; i <= occurrences; ++i)
            {
                const std::string text = TextOf(i);
                const std::size_t place = text.empty() ? 0 : texts.size();
                if (!text.empty()) texts += Big(text.size(), 2) + text;
                records += Bytes(TestId(i)) + Big(i, 4) + Bytes(TestId(1 + i % 2)) + '\1' + Big(place, 4);
            }
            const std::string date = (month == 4 ? "04" : "05") + std::string("-2007");
            files.Put(data + "Events " + date + ".eve", records);
            files.Put(data + "Annotations " + date + ".dat", texts);
        }
    }

    // Without the texts of the months in `textsMayBeGone`, perhaps.
    void ExpectAll(const std::set<std::string>& textsMayBeGone)
    {
        for (const char* month : {"04", "05"})
        {
            std::map<unsigned, std::string> seen;
            for (const char* name : {"pump", "fan"})
            {
                KTEventFile file(true);
                const std::string path = data + "2007/" + month + "/" + name + " " + month + "-2007.suc";
                ASSERT_TRUE(file.Open(Wide(path).Str(), true)) << path;
                EXPECT_EQ(file.NRecords(), static_cast<int>(occurrences / 2));
                for (int index = 0; index < file.NRecords(); ++index)
                {
                    ASSERT_TRUE(file.GoRecord(index));
                    KTNarrowString text;
                    file.EventAnnotation(text);
                    EXPECT_TRUE(seen.emplace(file.EventId().Data1, text.Str()).second);
                }
            }
            ASSERT_EQ(seen.size(), occurrences);
            for (const auto& [occurrence, text] : seen)
                EXPECT_TRUE(text == TextOf(occurrence) || (textsMayBeGone.contains(month) && text.empty()))
                    << occurrence;
        }
    }

    // A disk that forgets the deletion of the records and keeps that of their texts is none that anybody has met; there the
    // records stand all the same.
    static std::set<std::string> DeletedTexts(const std::vector<std::string>& trace)
    {
        std::set<std::string> months;
        const std::string deletion = "delete Annotations ";
        for (const std::string& deed : trace)
            if (deed.starts_with(deletion)) months.insert(deed.substr(deletion.size(), 2));
        return months;
    }

    TestRegistry registry{{"pump", "fan"}};
    const std::string data = registry.config.Data().string() + "/";
    FaultyFiles files;
    FaultyFiles::Random random{20070501};
};

TEST_F(TransformPower, WhoeverRunsItAgainHasEveryRecord)
{
    PutOldFiles();
    const int before = files.Operations();
    KTTransformEventsFilesTo27().Transform();
    const int operations = files.Operations() - before;
    ASSERT_GT(operations, 30);
    ExpectAll({});

    for (int cut = 1; cut <= operations; ++cut)
        for (int attempt = 0; attempt < 12; ++attempt)
        {
            const FaultyFiles::Loss loss = attempt == 0   ? FaultyFiles::Loss::all
                                           : attempt == 1 ? FaultyFiles::Loss::none
                                                          : FaultyFiles::Loss::some;
            SCOPED_TRACE("cut at operation " + std::to_string(cut) + ", attempt " + std::to_string(attempt));
            PutOldFiles();
            (void)files.Trace();
            files.CutPower(cut);
            KTTransformEventsFilesTo27().Transform();
            std::vector<std::string> done = files.Trace();
            done.resize(static_cast<std::size_t>(cut - 1));  // what was asked later didn't happen
            const std::set<std::string> gone = DeletedTexts(done);
            files.Restart(loss, random);
            KTTransformEventsFilesTo27().Transform();
            ExpectAll(gone);
            if (HasFailure()) return;
        }
}
}  // namespace
