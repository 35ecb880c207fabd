#include "suite/drivers/KTModbusFormat.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace
{
using Words = std::vector<std::uint16_t>;

KTModbusFormat Format(const char* kind, const char* order = "abcd", double scale = 1.0)
{
    KTModbusFormat format;
    EXPECT_TRUE(KTModbusFormat::FindKind(kind, format.kind)) << kind;
    EXPECT_TRUE(KTModbusFormat::FindOrder(order, format.order)) << order;
    format.scale = scale;
    return format;
}

Words Encoded(const KTModbusFormat& format, double value)
{
    KTModbusFormat::Registers registers{};
    if (!format.Encode(value, registers)) return {};
    return Words(registers.begin(), registers.begin() + format.Count());
}
}  // namespace

TEST(KTModbusFormat, ReadsAndWritesEachFormatInEachOrder)
{
    const struct
    {
        const char* kind;
        const char* order;
        double value;
        Words words;
    } rows[] = {
        {"bool", "abcd", 0, {0}},
        {"bool", "abcd", 1, {1}},
        {"int16", "abcd", -2, {0xFFFE}},
        {"int16", "cdab", 0x1234, {0x1234}},
        {"int16", "badc", 0x1234, {0x3412}},
        {"int16", "dcba", -2, {0xFEFF}},
        {"uint16", "abcd", 65534, {0xFFFE}},
        {"uint16", "dcba", 0xABCD, {0xCDAB}},
        {"int32", "abcd", 0x12345678, {0x1234, 0x5678}},
        {"int32", "cdab", 0x12345678, {0x5678, 0x1234}},
        {"int32", "badc", 0x12345678, {0x3412, 0x7856}},
        {"int32", "dcba", 0x12345678, {0x7856, 0x3412}},
        {"int32", "abcd", -1, {0xFFFF, 0xFFFF}},
        {"uint32", "abcd", 4294967294.0, {0xFFFF, 0xFFFE}},
        {"uint32", "cdab", 65536, {0x0000, 0x0001}},
        {"float32", "abcd", 1.5, {0x3FC0, 0x0000}},
        {"float32", "cdab", 1.5, {0x0000, 0x3FC0}},
        {"float32", "badc", 1.5, {0xC03F, 0x0000}},
        {"float32", "dcba", 1.5, {0x0000, 0xC03F}},
        {"float64", "abcd", -123.456, {0xC05E, 0xDD2F, 0x1A9F, 0xBE77}},
        {"float64", "cdab", -123.456, {0xBE77, 0x1A9F, 0xDD2F, 0xC05E}},
        {"float64", "badc", -123.456, {0x5EC0, 0x2FDD, 0x9F1A, 0x77BE}},
        {"float64", "dcba", -123.456, {0x77BE, 0x9F1A, 0x2FDD, 0x5EC0}},
    };
    for (const auto& row : rows)
    {
        const KTModbusFormat format = Format(row.kind, row.order);
        EXPECT_EQ(format.Count(), static_cast<int>(row.words.size())) << row.kind;
        EXPECT_EQ(format.Decode(row.words), row.value) << row.kind << ' ' << row.order;
        EXPECT_EQ(Encoded(format, row.value), row.words) << row.kind << ' ' << row.order;
    }
}

TEST(KTModbusFormat, RefusesWhatDoesntFit)
{
    const double infinite = std::numeric_limits<double>::infinity();
    const struct
    {
        const char* kind;
        double value;
        bool fits;
    } rows[] = {
        {"bool", 0.4, true},
        {"bool", 1.49, true},
        {"bool", 2, false},
        {"bool", -1, false},
        {"int16", 32767, true},
        {"int16", 32767.4, true},
        {"int16", 32767.5, false},
        {"int16", -32768, true},
        {"int16", -32768.5, false},
        {"int16", 40000, false},
        {"uint16", 65535, true},
        {"uint16", 65536, false},
        {"uint16", -0.4, true},
        {"uint16", -1, false},
        {"int32", 2147483647.0, true},
        {"int32", 2147483648.0, false},
        {"int32", -2147483648.0, true},
        {"int32", -2147483649.0, false},
        {"uint32", 4294967295.0, true},
        {"uint32", 4294967296.0, false},
        {"uint32", -1, false},
        {"float32", 3.4e38, true},
        {"float32", 3.5e38, false},
        {"float32", -3.5e38, false},
        {"float32", 1e-50, true},
        {"float64", 1e308, true},
        {"float64", infinite, false},
        {"float32", -infinite, false},
        {"int16", std::nan(""), false},
        {"float64", std::nan(""), false},
        {"bool", std::nan(""), false},
    };
    for (const auto& row : rows)
    {
        KTModbusFormat::Registers registers{1, 2, 3, 4};
        EXPECT_EQ(Format(row.kind).Encode(row.value, registers), row.fits) << row.kind << ' ' << row.value;
        if (!row.fits)
        {
            EXPECT_EQ(registers, (KTModbusFormat::Registers{1, 2, 3, 4}));
        }
    }
}

TEST(KTModbusFormat, RoundsHalvesAwayFromZero)
{
    EXPECT_EQ(Encoded(Format("int16"), 2.5), Words{3});
    EXPECT_EQ(Encoded(Format("int16"), -2.5), Words{0xFFFD});
    EXPECT_EQ(Encoded(Format("int16"), 2.49), Words{2});
}

TEST(KTModbusFormat, AnyRegisterButZeroIsTrue)
{
    EXPECT_EQ(Format("bool").Decode(Words{0x8000}), 1.0);
    EXPECT_EQ(Format("bool", "badc").Decode(Words{1}), 1.0);
}

TEST(KTModbusFormat, ANumberThatIsNoneStaysSo)
{
    EXPECT_TRUE(std::isnan(Format("float32").Decode(Words{0x7FC0, 0})));
    EXPECT_TRUE(std::isnan(Format("float32").Decode(Words{0xFFFF, 0xFFFF})));
    EXPECT_TRUE(std::isnan(Format("float64").Decode(Words{0x7FF8, 0, 0, 0})));
    EXPECT_TRUE(std::isinf(Format("float32").Decode(Words{0x7F80, 0})));
}

TEST(KTModbusFormat, ScalesToTheNumberThatPeopleWrite)
{
    const struct
    {
        double scale;
        std::uint16_t raw;
        double value;  // exactly
    } rows[] = {
        {0.1, 3, 0.3}, {0.1, 2301, 230.1}, {0.01, 5003, 50.03}, {0.001, 7, 0.007}, {0.5, 3, 1.5},
        {10, 7, 70},   {2.5, 4, 10},       {-0.1, 3, -0.3},     {-1, 5, -5},       {0.3, 10, 3},
    };
    for (const auto& row : rows)
    {
        const KTModbusFormat format = Format("uint16", "abcd", row.scale);
        EXPECT_EQ(format.Decode(Words{row.raw}), row.value) << row.scale;
        EXPECT_EQ(Encoded(format, row.value), Words{row.raw}) << row.scale;
    }
    // The range is the register's, after the scale.
    EXPECT_EQ(Encoded(Format("int16", "abcd", 0.1), 3276.8), Words{});
    EXPECT_EQ(Encoded(Format("int16", "abcd", 0.1), 3276.7), Words{32767});
    EXPECT_EQ(Encoded(Format("int16", "abcd", 1e-300), 1e10), Words{});
}

TEST(KTModbusFormat, UnknownNamesChangeNothing)
{
    KTModbusFormat::Kind kind = KTModbusFormat::Kind::int32;
    EXPECT_FALSE(KTModbusFormat::FindKind("int64", kind));
    EXPECT_FALSE(KTModbusFormat::FindKind("", kind));
    EXPECT_EQ(kind, KTModbusFormat::Kind::int32);
    KTModbusFormat::Order order = KTModbusFormat::Order::badc;
    EXPECT_FALSE(KTModbusFormat::FindOrder("ABCD", order));
    EXPECT_EQ(order, KTModbusFormat::Order::badc);
}

RC_GTEST_PROP(KTModbusFormat, WhatIsWrittenIsReadBack, (std::int32_t number))
{
    const KTModbusFormat format =
        Format(*rc::gen::element("int32", "float64"), *rc::gen::element("abcd", "cdab", "badc", "dcba"),
               *rc::gen::element(1.0, 0.5, 4.0, -2.0));
    const double value = number * format.scale;
    KTModbusFormat::Registers registers{};
    RC_ASSERT(format.Encode(value, registers));
    RC_ASSERT(format.Decode({registers.data(), static_cast<std::size_t>(format.Count())}) == value);
}

RC_GTEST_PROP(KTModbusFormat, EveryRegisterOfAnIntegerSurvives, (std::uint16_t high, std::uint16_t low))
{
    const KTModbusFormat format =
        Format(*rc::gen::element("int32", "uint32"), *rc::gen::element("abcd", "cdab", "badc", "dcba"));
    const Words words{high, low};
    RC_ASSERT(Encoded(format, format.Decode(words)) == words);
}
