// The state machine of an event against a slow and obvious one, over whatever may happen to it.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <list>
#include <map>
#include <memory>

#include "DriverFixture.h"

namespace
{
constexpr double noValue = TestDriver::none;

struct Plan
{
    unsigned secondsToActivate = 0;
    unsigned secondsToDeactivate = 0;
    bool notify = false;
    bool hasStop = false;
    std::uint32_t firstTick = 0;
};

struct Step
{
    enum Kind
    {
        scan,
        pass,
        condition,
        stop,
        table,
        acknowledge,
        resetOn,
        resetOff,
        kinds
    };
    Kind kind = scan;
    int number = 0;      // milliseconds, or which occurrence
    double value = 0.0;  // of a variable, or 1 for an open table
};

void showValue(const Plan& plan, std::ostream& out)
{
    out << "on " << plan.secondsToActivate << " s, off " << plan.secondsToDeactivate << " s, "
        << (plan.notify ? "notifies" : "silent") << (plan.hasStop ? ", with stop" : "") << ", tick " << plan.firstTick;
}

void showValue(const Step& step, std::ostream& out)
{
    const char* const names[] = {"scan", "pass ", "C=", "S=", "table ", "acknowledge ", "reset on", "reset off"};
    out << names[step.kind];
    if (step.kind == Step::pass || step.kind == Step::acknowledge)
        out << step.number;
    else if (step.kind != Step::scan && step.kind < Step::acknowledge)
        out << step.value;
}

// The four states of the table, and the occurrences, each a number in the order of their making.
class Model
{
public:
    explicit Model(const Plan& itsPlan) : plan(itsPlan), tick(itsPlan.firstTick) {}

    void Apply(const Step& step)
    {
        switch (step.kind)
        {
            case Step::scan:
                Scan();
                break;
            case Step::pass:
                tick += static_cast<std::uint32_t>(step.number);
                break;
            case Step::condition:
                conditionValue = step.value;
                break;
            case Step::stop:
                stopValue = step.value;
                break;
            case Step::table:
                open = step.value == 1.0;
                break;
            case Step::acknowledge:
                Acknowledge(step.number);
                break;
            case Step::resetOn:
                if (state == activating) state = inactive;
                break;
            case Step::resetOff:
                if (state == deactivating) state = active;
                break;
            case Step::kinds:
                break;
        }
    }

    [[nodiscard]] bool IsActive() const { return state == active || state == deactivating; }
    [[nodiscard]] std::vector<std::pair<int, int>> Occurrences() const { return {open_.begin(), open_.end()}; }

    Strings trace;
    int made = 0;
    std::string annotation;
    bool timed = false;

private:
    enum State
    {
        inactive,
        activating,
        active,
        deactivating
    };

    void Scan()
    {
        if (!open)
        {
            if (IsActive())
            {
                Action(2);
                End();
            }
        }
        else if (IsActive() && plan.hasStop ? stopValue != 1.0 : conditionValue == 1.0)
            Holds();
        else
            Fails();
        open_.remove_if([](const std::pair<int, int>& occurrence) { return occurrence.second == 7; });
    }

    void Holds()
    {
        if (IsActive())
        {
            Action(1);
            state = active;
            return;
        }
        if (plan.secondsToActivate != 0)
        {
            if (state == inactive)
            {
                Run(activating);
                return;
            }
            if (Elapsed() < plan.secondsToActivate * 1000) return;
        }
        annotation = "why";
        timed = true;
        Action(0);
        state = active;
        open_.emplace_back(made++, plan.notify ? 0 : 4);
        Set(open_.back(), 1);
    }

    void Fails()
    {
        if (state == activating) state = inactive;
        if (!IsActive()) return;
        if (plan.secondsToDeactivate == 0)
        {
            annotation.clear();
            Action(2);
        }
        else
        {
            if (state == active)
            {
                Run(deactivating);
                return;
            }
            if (Elapsed() < plan.secondsToDeactivate * 1000) return;
            Action(2);
            annotation.clear();
        }
        timed = false;
        End();
    }

    // Tick 0 can't be told from a delay that isn't running.
    void Run(State next)
    {
        if (tick == 0) return;
        state = next;
        since = tick;
    }
    [[nodiscard]] std::uint32_t Elapsed() const { return tick - since; }

    void End()
    {
        state = inactive;
        for (auto& occurrence : open_)
            if ((occurrence.second & 2) == 0) Set(occurrence, 2);
    }

    void Acknowledge(int number)
    {
        for (auto& occurrence : open_)
        {
            if (occurrence.first != number || (occurrence.second & 4) != 0) continue;
            Action(3);
            Set(occurrence, 4);
        }
    }

    void Action(int phase)
    {
        trace.push_back("phase " + std::to_string(phase) + ": \"" + annotation + "\"" + (timed ? ", timed" : ""));
    }
    void Set(std::pair<int, int>& occurrence, int status)
    {
        occurrence.second |= status;
        trace.push_back(std::to_string(occurrence.first) + ": " + std::to_string(status) + " gives " +
                        std::to_string(occurrence.second));
    }

    const Plan plan;
    std::uint32_t tick;
    State state = inactive;
    std::uint32_t since = 0;
    double conditionValue = 0.0;
    double stopValue = 0.0;
    bool open = true;
    std::list<std::pair<int, int>> open_;  // number and status, oldest first
};

// The event itself, driven by the same steps.
class Machine
{
public:
    explicit Machine(const Plan& plan) : clock(Date(2024, 1, 1), plan.firstTick)
    {
        plant.Set(L"C", 0.0);
        plant.Set(L"S", 0.0);
        plant.Register();
        const std::string more = Element("delayToActivate", std::to_string(plan.secondsToActivate)) +
                                 Element("delayToDeactivate", std::to_string(plan.secondsToDeactivate)) +
                                 Element("notify", plan.notify ? "T" : "F") + Element("annotation", "why") +
                                 (plan.hasStop ? Element("conditionStop", "[M.S]=1") : "");
        RC_ASSERT(event.LoadText(EventXml(1, "e", "[M.C]=1", more)));
        event.timeTable = &table;
        for (int phase = 0; phase < KTEventAction::phases; ++phase)
            event.Add(phase,
                      [this](int run)
                      {
                          trace.push_back("phase " + std::to_string(run) + ": \"" + Utf8(event.annotationText) + "\"" +
                                          (event.activationTime.Valid() ? ", timed" : ""));
                          return run != 1;
                      });
    }

    void Apply(const Step& step)
    {
        switch (step.kind)
        {
            case Step::scan:
                RC_ASSERT(event.Work(KTDateTime::LTC()));
                break;
            case Step::pass:
                clock->Advance(std::chrono::milliseconds(step.number));
                break;
            case Step::condition:
                plant.Set(L"C", step.value);
                break;
            case Step::stop:
                plant.Set(L"S", step.value);
                break;
            case Step::table:
                table.open = step.value == 1.0;
                break;
            case Step::acknowledge:
                Acknowledge(step.number);
                break;
            case Step::resetOn:
                event.ResetDelayONCounter();
                break;
            case Step::resetOff:
                event.ResetDelayOFFCounter();
                break;
            case Step::kinds:
                break;
        }
    }

    std::vector<std::pair<int, int>> Occurrences()
    {
        std::vector<std::pair<int, int>> all;
        for (const auto* occurrence : event.Occurrences()) all.emplace_back(Number(occurrence->id), occurrence->status);
        return all;
    }

    TestClock clock;
    KTEventSystem system;
    TestDriver plant{L"M", {L"C", L"S"}};
    TestTable table;
    TestEvent event;
    Strings trace;

private:
    int Number(const GUID& id)
    {
        const std::string text = Text(id);
        return numbers.try_emplace(text, static_cast<int>(numbers.size())).first->second;
    }

    void Acknowledge(int number)
    {
        GUID id = TestId(99);  // nobody's
        for (const auto* occurrence : event.Occurrences())
            if (Number(occurrence->id) == number) id = occurrence->id;
        const bool known = !(id == TestId(99));
        RC_ASSERT(event.ProcessHttpServiceAck(id) == known);
    }

    std::map<std::string, int> numbers;
    TestObserver observer{[this](const KTEventDriver&, const KTEventDriver::tagSEventRT& occurrence, int status)
                          {
                              trace.push_back(std::to_string(Number(occurrence.id)) + ": " + std::to_string(status) +
                                              " gives " + std::to_string(occurrence.status));
                          }};
};

rc::Gen<Plan> Plans()
{
    return rc::gen::build<Plan>(
        rc::gen::set(&Plan::secondsToActivate, rc::gen::element(0U, 1U, 2U, 5U)),
        rc::gen::set(&Plan::secondsToDeactivate, rc::gen::element(0U, 1U, 2U, 5U)), rc::gen::set(&Plan::notify),
        rc::gen::set(&Plan::hasStop),
        // Far from the wrap, at it, and so that tick 0 falls on a scan.
        rc::gen::set(&Plan::firstTick, rc::gen::element(1'000'000U, 0U, 1U, 0xFFFFFFFFU, 0U - 1000U, 0U - 2000U,
                                                        0U - 5000U, 0U - 4321U)));
}

rc::Gen<Step> Steps()
{
    // Scans and pauses most, as in life; whole seconds most, so that delays end to the millisecond.
    return rc::gen::build<Step>(
        rc::gen::set(&Step::kind, rc::gen::weightedElement<Step::Kind>({{10, Step::scan},
                                                                        {6, Step::pass},
                                                                        {5, Step::condition},
                                                                        {3, Step::stop},
                                                                        {2, Step::table},
                                                                        {3, Step::acknowledge},
                                                                        {1, Step::resetOn},
                                                                        {1, Step::resetOff}})),
        rc::gen::set(&Step::value, rc::gen::weightedElement<double>({{8, 1.0}, {6, 0.0}, {1, 2.0}, {2, noValue}})));
}
}  // namespace

RC_GTEST_PROP(KTEventDriverModel, GoesThroughTheStatesOfTheTable, ())
{
    const Plan plan = *Plans();
    const auto length = *rc::gen::inRange<std::size_t>(0, 300);
    auto steps = *rc::gen::container<std::vector<Step>>(length, Steps());
    Model model(plan);
    Machine machine(plan);
    for (Step& step : steps)
    {
        if (step.kind == Step::pass)
            step.number = *rc::gen::weightedElement<int>({{1, 0}, {2, 1}, {1, 999}, {6, 1000}, {2, 2000}, {1, 4321}});
        if (step.kind == Step::acknowledge) step.number = *rc::gen::inRange(0, model.made + 1);
        RC_LOG() << rc::toString(step) << '\n';
        model.Apply(step);
        machine.Apply(step);
        RC_ASSERT(machine.trace == model.trace);
        RC_ASSERT(machine.Occurrences() == model.Occurrences());
        RC_ASSERT(machine.event.IsEnabled() == model.IsActive());
        RC_ASSERT(Utf8(machine.event.Annotation()) == model.annotation);
        RC_ASSERT(machine.event.activationTime.Valid() == model.timed);
    }
    RC_TAG(plan.notify ? "notifies" : "silent");
}
