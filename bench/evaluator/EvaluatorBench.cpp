// One evaluation of twelve conditions: ours, muParser's, LuaJIT's, and a C++ function of the same meaning that isn't
// inlined. The same cells serve all four. A table of ratios follows the figures.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <string>

#include "bench/evaluator/Conditions.h"
#include "bench/evaluator/Rivals.h"
#include "host/KTEvaluator.h"
#include "tests/support/TestDriver.h"

namespace
{
CellList CellsOf(TestDriver& plant)
{
    CellList cells{};
    for (std::size_t i = 0; i < cells.size(); ++i) cells[i] = plant.ValueCell(static_cast<int>(i));
    return cells;
}

void SetValues(TestDriver& plant, const Condition& condition)
{
    for (std::size_t i = 0; i < condition.values.size(); ++i)
        (void)plant.SetValue(static_cast<int>(i), condition.values[i]);
}

struct Contest
{
    Contest(const Condition& c, TestDriver& plant)
        : condition(c), cells(CellsOf(plant)), ours(c.expression), muparser(c.muparser, cells), lua(c.lua, cells)
    {
        ours.AnalizeExpression();
    }

    const Condition& condition;
    const CellList cells;
    KTEvaluator ours;
    MuParserCondition muparser;
    LuaCondition lua;
};

// The four mean the same, or their times mean nothing.
bool Agree(Contest& contest)
{
    double ours = -1.0;
    double function = -1.0;
    int kind = 0;
    const bool done = contest.ours.polaca.Evaluate(ours, kind) == 0 && kind == 1 &&
                      contest.condition.function(contest.cells, function, kind) == 0;
    return done && ours == function && ours == contest.muparser.Evaluate() && ours == contest.lua.Evaluate();
}

template <class Evaluate>
void Register(const std::string& name, TestDriver& plant, Contest& contest, Evaluate evaluate)
{
    const auto run = [&plant, &contest, evaluate](benchmark::State& state)
    {
        SetValues(plant, contest.condition);
        for (auto _ : state) evaluate(contest);
    };
    benchmark::RegisterBenchmark(name.c_str(), run)->MinTime(0.05)->Repetitions(5)->ReportAggregatesOnly(false);
}

void RegisterAll(TestDriver& plant, Contest& contest)
{
    const std::string name = std::string("evaluate/") + contest.condition.name;
    Register(name + "/corvane", plant, contest,
             [](Contest& c)
             {
                 double value;
                 int kind;
                 benchmark::DoNotOptimize(c.ours.polaca.Evaluate(value, kind));
                 benchmark::DoNotOptimize(value);
             });
    Register(name + "/muparser", plant, contest, [](Contest& c) { benchmark::DoNotOptimize(c.muparser.Evaluate()); });
    Register(name + "/luajit", plant, contest, [](Contest& c) { benchmark::DoNotOptimize(c.lua.Evaluate()); });
    Register(name + "/cpp", plant, contest,
             [](Contest& c)
             {
                 double value;
                 int kind;
                 benchmark::DoNotOptimize(c.condition.function(c.cells, value, kind));
                 benchmark::DoNotOptimize(value);
             });
}

// Shows each benchmark as usual and keeps the best of its repetitions: what disturbs a run only makes it slower.
class Table : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        double best = std::numeric_limits<double>::infinity();
        const Run* shown = nullptr;
        for (const Run& run : runs)
        {
            if (run.run_type != Run::RT_Iteration || run.GetAdjustedCPUTime() >= best) continue;
            best = run.GetAdjustedCPUTime();
            shown = &run;
        }
        if (shown == nullptr) return;
        nanoseconds[shown->run_name.function_name] = best;
        ConsoleReporter::ReportRuns({*shown});
    }

    void Print() const
    {
        std::printf("\n%-18s %8s %10s %8s %6s   %9s %7s %8s\n", "ns an evaluation", "corvane", "muparser", "luajit",
                    "cpp", "/muparser", "/luajit", "/cpp");
        for (const Condition& condition : Conditions())
        {
            const double ours = Of(condition, "corvane");
            const double muparser = Of(condition, "muparser");
            const double lua = Of(condition, "luajit");
            const double cpp = Of(condition, "cpp");
            std::printf("%-18s %8.2f %10.2f %8.2f %6.2f   %9.2f %7.2f %8.2f\n", condition.name, ours, muparser, lua,
                        cpp, ours / muparser, ours / lua, ours / cpp);
        }
    }

private:
    double Of(const Condition& condition, const char* who) const
    {
        const auto found = nanoseconds.find(std::string("evaluate/") + condition.name + "/" + who);
        return found == nanoseconds.end() ? std::numeric_limits<double>::quiet_NaN() : found->second;
    }

    std::map<std::string, double> nanoseconds;
};
}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    TestDriver plant(L"B", {L"V0", L"V1", L"V2", L"V3", L"V4", L"V5", L"V6", L"V7"});
    plant.Register();
    std::vector<std::unique_ptr<Contest>> contests;
    for (const Condition& condition : Conditions())
    {
        SetValues(plant, condition);
        Contest& contest = *contests.emplace_back(std::make_unique<Contest>(condition, plant));
        if (!Agree(contest))
        {
            std::fprintf(stderr, "%s: the four don't agree\n", condition.name);
            return 1;
        }
        RegisterAll(plant, contest);
    }
    Table table;
    benchmark::RunSpecifiedBenchmarks(&table);
    table.Print();
    return 0;
}
