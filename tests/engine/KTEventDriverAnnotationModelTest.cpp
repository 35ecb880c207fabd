// The expansion of annotations against a slow and obvious one, over templates that nobody would write.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "engine/KTEventDriverGroup.h"
#include "engine/KTEventSystem.h"
#include "host/KTEvaluator.h"
#include "host/KTNumberFormat.h"
#include "support/TestDriver.h"
#include "support/TestEvent.h"
#include "timetable/KTTimeTable.h"

namespace
{
struct Argument
{
    std::string value;
    std::string format;
    std::string thousands;
    bool present = true;  // false: a null in the list
};

// What there is to show.
struct Plan
{
    std::string name;
    std::string condition;
    std::string stop;
    std::string description;
    std::uint32_t delayOn = 0;   // milliseconds
    std::uint32_t delayOff = 0;  // milliseconds
    std::vector<Argument> arguments;
    std::vector<std::string> groups;  // "-": a null in the list
    bool hasTable = false;
};

void showValue(const Argument& argument, std::ostream& out)
{
    out << '(' << argument.value << '|' << argument.format << '|' << argument.thousands << '|' << argument.present
        << ')';
}

void showValue(const Plan& plan, std::ostream& out)
{
    out << plan.name << ", " << plan.condition << ", " << plan.stop << ", " << plan.description << ", " << plan.delayOn
        << ", " << plan.delayOff << ", arguments " << rc::toString(plan.arguments) << ", groups "
        << rc::toString(plan.groups) << (plan.hasTable ? ", table" : "");
}

// Character by character, two modes, one code after the other.
class Naive
{
public:
    explicit Naive(const Plan& its) : plan(its) {}

    std::string Expand(const std::string& text)
    {
        bool percent = false;
        std::string out;
        for (std::size_t i = 0; i < text.size();)
        {
            const char c = text[i++];
            if (!percent)
            {
                if (c == '%')
                    percent = true;
                else
                    out += c;
                continue;
            }
            percent = false;
            std::string digits;
            for (std::size_t k = i; k < text.size() && text[k] >= '0' && text[k] <= '9'; ++k) digits += text[k];
            std::string shown;
            if (c == 'a' || c == 'g')
            {
                if (c == 'a' ? ShowArgument(digits, shown) : ShowGroup(digits, shown))
                {
                    out += shown;
                    i += digits.size();
                }
                else
                    out += std::string("%") + c;
            }
            else
                out += Show(c);
        }
        return out;
    }

private:
    std::string Show(char c) const
    {
        switch (c)
        {
            case '%':
                return "%";
            case 'b':
                return std::to_string(plan.delayOn / 1000);
            case 'c':
                return plan.condition;
            case 'd':
                return plan.hasTable ? "Nights" : "No time table";
            case 'e':
                return std::to_string(plan.delayOff / 1000);
            case 'n':
                return plan.name;
            case 's':
                return plan.stop;
            case 't':
                return plan.description;
            default:
                return std::string("%") + c;
        }
    }

    // Without arithmetic: the number is the place at which counting up writes the same digits. -1: nowhere.
    static int Place(std::string digits, std::size_t size)
    {
        if (digits.empty()) return -1;
        while (digits.size() > 1 && digits.front() == '0') digits.erase(0, 1);
        for (std::size_t i = 0; i < size; ++i)
            if (std::to_string(i + 1) == digits) return static_cast<int>(i);
        return -1;
    }

    bool ShowGroup(const std::string& digits, std::string& shown) const
    {
        const int place = Place(digits, plan.groups.size());
        if (place < 0) return false;
        shown = plan.groups[static_cast<std::size_t>(place)];
        return shown != "-";
    }

    bool ShowArgument(const std::string& digits, std::string& shown) const
    {
        const int place = Place(digits, plan.arguments.size());
        if (place < 0) return false;
        const Argument& argument = plan.arguments[static_cast<std::size_t>(place)];
        if (!argument.present || argument.value.empty()) return false;
        shown = argument.value;
        KTEvaluator evaluator(Wide(argument.value).Str());
        if (evaluator.AnalizeExpression() != 0) return true;
        double value = 0.0;
        int kind = 0;
        if (evaluator.polaca.Evaluate(value, kind) != 0) return true;
        int integerDigits = 0;
        int decimalDigits = 0;
        bool zerosInteger = false;
        bool zerosDecimal = false;
        KTCardFormule::ParseFormat(Wide(argument.format).Str(), integerDigits, decimalDigits, zerosInteger,
                                   zerosDecimal);
        KTWideString number;
        KTEditTemplateWnd::FormatDouble(number, value, integerDigits, decimalDigits, argument.thousands == "T",
                                        zerosInteger, zerosDecimal);
        shown = Utf8(number);
        return true;
    }

    const Plan& plan;
};

// The event of a plan.
class Machine
{
public:
    explicit Machine(const Plan& plan) : document(L"main")
    {
        table.name = L"Nights";
        document.Fill("name", plan.name);
        document.Fill("condition", plan.condition);
        if (!plan.stop.empty()) document.Fill("conditionStop", plan.stop);
        document.Fill("description", plan.description);
        event.node = document.Root();
        event.delayToActivate = plan.delayOn;
        event.delayToDeactivate = plan.delayOff;
        event.timeTable = plan.hasTable ? &table : nullptr;
        for (const Argument& argument : plan.arguments)
        {
            if (!argument.present)
            {
                event.arguments.push_back(nullptr);
                continue;
            }
            auto& own = arguments.emplace_back(L"argument");
            own.Fill("value", argument.value);
            if (!argument.format.empty()) own.Fill("format", argument.format);
            own.Fill("thousandSeparator", argument.thousands);
            event.arguments.push_back(own.Root());
        }
        for (const std::string& name : plan.groups)
        {
            if (name == "-")
            {
                event.groups.push_back(nullptr);
                continue;
            }
            XmlDocument group;
            if (!group.Parse(GroupXml(1, name).c_str())) throw std::runtime_error("a group's text is no XML");
            if (!groups.emplace_back().LoadXml(*group.Root())) throw std::runtime_error("a group is refused");
            event.groups.push_back(&groups.back());
        }
    }

    std::string Expand(const std::string& text)
    {
        KTWideString out;
        if (!event.ParseAnnotation(out, Wide(text))) return "false";
        return Utf8(out);
    }

private:
    class Filled
    {
    public:
        explicit Filled(const wchar_t* tag) { document.Create(tag); }
        void Fill(const char* tag, const std::string& text)
        {
            document.Root()->SetValue(Wide(tag).Str(), Wide(text).Str());
        }
        [[nodiscard]] const XmlDocument::XmlNode* Root() const { return document.Root(); }

    private:
        XmlDocument document;
    };

    Filled document;
    std::deque<Filled> arguments;
    std::deque<KTEventDriverGroup> groups;
    KTTimeTable table;
    TestEvent event;  // last: it points into the others
};

rc::Gen<Argument> Arguments()
{
    using rc::gen::element;
    using String = std::string;
    return rc::gen::build<Argument>(
        rc::gen::set(&Argument::value,
                     element<String>("[T.P]", "[T.P] * 1000", "-[T.P] / 7", "[T.none]", "[X.Y]", "1 / 0", "12", "TRUE",
                                     "[T.P] > 3", "a word", "50% %a1 %", "", "[T.P")),
        rc::gen::set(&Argument::format,
                     element<String>("", ".", "02.3", ".02", "0<.01", "3.0", ".0", "5", "x.y", "..")),
        rc::gen::set(&Argument::thousands, element<String>("T", "F", "", "t", "TT")),
        rc::gen::set(&Argument::present, rc::gen::weightedElement<bool>({{9, true}, {1, false}})));
}

rc::Gen<Plan> Plans()
{
    using rc::gen::element;
    using String = std::string;
    return rc::gen::build<Plan>(
        rc::gen::set(&Plan::name, element<String>("Pump", "", "%b%", "泵 é")),
        rc::gen::set(&Plan::condition, element<String>("[T.P] > 3", "")),
        rc::gen::set(&Plan::stop, element<String>("", "[T.P] < 3 & \"x\"")),
        rc::gen::set(&Plan::description, element<String>("", "too much", "100%%")),
        rc::gen::set(&Plan::delayOn, element(0U, 999U, 1000U, 2000U, 86'400'000U, 0xFFFFFFFFU)),
        rc::gen::set(&Plan::delayOff, element(0U, 999U, 1000U, 2000U, 86'400'000U, 0xFFFFFFFFU)),
        rc::gen::set(&Plan::arguments, rc::gen::resize(14, rc::gen::container<std::vector<Argument>>(Arguments()))),
        rc::gen::set(&Plan::groups, rc::gen::resize(12, rc::gen::container<std::vector<String>>(
                                                            element<String>("-", "Air", "%g1", "W 2")))),
        rc::gen::set(&Plan::hasTable));
}

// Characters as they come, and what could be a code.
rc::Gen<std::string> Templates()
{
    const auto piece = rc::gen::oneOf(
        rc::gen::element<std::string>("%", "%", "%", "a", "g", "b", "0", "1", "2", "9", " ", "x", "é", "泵",
                                      "\xF0\x9F\x92\xA7"),
        rc::gen::element<std::string>("%a", "%b", "%c", "%d", "%e", "%f", "%g", "%n", "%s", "%t", "%%", "%A", "kW"),
        rc::gen::map(rc::gen::pair(rc::gen::element<std::string>("%a", "%g", "%a0", "%g00"), rc::gen::inRange(0, 16)),
                     [](const auto& code) { return code.first + std::to_string(code.second); }),
        rc::gen::map(rc::gen::arbitrary<std::uint64_t>(), [](auto number) { return "%a" + std::to_string(number); }));
    return rc::gen::map(rc::gen::container<std::vector<std::string>>(piece),
                        [](const std::vector<std::string>& pieces)
                        {
                            std::string text;
                            for (const std::string& one : pieces) text += one;
                            return text;
                        });
}
}  // namespace

RC_GTEST_PROP(KTEventDriverAnnotationModel, ExpandsAsTheSlowOneWhateverTheTemplate, ())
{
    const KTEventSystem system;
    TestDriver plant{L"T", {L"P", L"none"}};
    RC_ASSERT(plant.Register());
    const Plan plan = *Plans();
    Machine machine(plan);
    Naive naive(plan);
    // More than one of each event, with other values: what an expansion keeps must not show in the next.
    const auto templates =
        *rc::gen::resize(4, rc::gen::container<std::vector<std::string>>(rc::gen::resize(40, Templates())));
    for (const std::string& text : templates)
    {
        plant.Set(L"P", *rc::gen::element(0.0, 7.25, 12345.678, -0.004, TestDriver::none));
        RC_ASSERT(machine.Expand(text) == naive.Expand(text));
    }
}
