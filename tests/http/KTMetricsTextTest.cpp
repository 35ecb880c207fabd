#include "suite/http/KTMetricsText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

TEST(KTMetricsText, PutsHelpAndTypeBeforeTheSamples)
{
    KTMetricsText page;
    page.Counter("scans_total", "Scans since the start.");
    page.Sample(3);
    page.Gauge("active", "Active now.");
    page.Sample(0.25, {{"hall", "A"}, {"line", "2"}});
    page.Sample(1, {{"hall", "B"}, {"line", "1"}});
    EXPECT_EQ(page.Take(),
              "# HELP scans_total Scans since the start.\n"
              "# TYPE scans_total counter\n"
              "scans_total 3\n"
              "# HELP active Active now.\n"
              "# TYPE active gauge\n"
              "active{hall=\"A\",line=\"2\"} 0.25\n"
              "active{hall=\"B\",line=\"1\"} 1\n");
}

TEST(KTMetricsText, WritesEveryNumberSoThatItReadsBackTheSame)
{
    const struct
    {
        double value;
        const char* text;
    } rows[] = {
        {0, "0"},
        {-1, "-1"},
        {0.1, "0.1"},
        {1e6, "1e+06"},
        {123456789, "123456789"},
        {9007199254740993.0, "9007199254740992"},
        {1.0 / 3, "0.3333333333333333"},
        {std::nan(""), "NaN"},
        {std::numeric_limits<double>::infinity(), "+Inf"},
        {-std::numeric_limits<double>::infinity(), "-Inf"},
    };
    for (const auto& r : rows)
    {
        KTMetricsText page;
        page.Sample(r.value);
        EXPECT_EQ(page.Take(), std::string(" ") + r.text + '\n');
    }
}

TEST(KTMetricsText, EscapesTheValuesOfLabels)
{
    KTMetricsText page;
    page.Gauge("up", "Up.");
    page.Sample(1, {{"device", "a\"b\\c\nd é"}});
    EXPECT_NE(page.Take().find("up{device=\"a\\\"b\\\\c\\nd é\"} 1\n"), std::string::npos);
}

TEST(KTMetricsHistogram, CountsAnObservationInItsStepAndInAllAbove)
{
    KTMetricsHistogram histogram;
    for (const double seconds : {0.0, 0.001, 0.0011, 1.0, 29.0, 31.0}) histogram.Observe(seconds);
    const std::array<std::uint64_t, 12> expected = {2, 3, 3, 3, 3, 3, 3, 4, 4, 4, 5, 6};
    EXPECT_EQ(histogram.Counts(), expected);
    EXPECT_DOUBLE_EQ(histogram.Sum(), 61.0021);
}

TEST(KTMetricsHistogram, BecomesAFamilyOfBucketsSumAndCount)
{
    KTMetricsHistogram histogram;
    histogram.Observe(0.002);
    histogram.Observe(100);
    KTMetricsText page;
    page.Histogram("query_seconds", "How long.", histogram);
    const std::string text = page.Take();
    EXPECT_EQ(text.rfind("# HELP query_seconds How long.\n# TYPE query_seconds histogram\n"
                         "query_seconds_bucket{le=\"0.001\"} 0\nquery_seconds_bucket{le=\"0.0025\"} 1\n",
                         0),
              0U);
    EXPECT_NE(text.find("query_seconds_bucket{le=\"30\"} 1\nquery_seconds_bucket{le=\"+Inf\"} 2\n"
                        "query_seconds_sum 100.002\nquery_seconds_count 2\n"),
              std::string::npos);
}

TEST(KTMetricsHistogram, LosesNothingToThreads)
{
    KTMetricsHistogram histogram;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&]
            {
                for (int n = 0; n < 10'000; ++n) histogram.Observe(0.5);
            });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(histogram.Counts().back(), 40'000U);
    EXPECT_DOUBLE_EQ(histogram.Sum(), 20'000.0);
}
