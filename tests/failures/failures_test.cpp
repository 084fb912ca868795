// Lets each fallible call of the server fail, one at a time, in every phase of its life (calls.txt): it
// goes on, says so, leaks nothing, keeps its threads and descriptors, and ends when it is told to. In each
// phase the first, second, ... thirtieth call fails, then each doubled number.

#include <iostream>

#include "tests/failures/rows.h"
#include "tests/failures/scenes.h"

namespace {

void Disarm()
{
    Control().call = kNoCall;
    Control().hasFailed = false;
}

void Arm(const Row& row, int nth)
{
    Disarm();
    Control().left = nth;
    Control().result = row.result;
    Control().error = row.number;
    Control().isMade = row.isMade;
    Control().call = row.call;
}

class Failures : public Scenes {
  protected:
    void Start()
    {
        Control().isUp = false;
        server.emplace();
        WaitUntil("the start", [] { return Control().isUp.load(); });
        left = CountLeft();
    }
    [[nodiscard]] size_t CountLeft() const
    {
        return 1000 * server->CountEntries("task") + server->CountEntries("fd");
    }
    void AwaitQuiet() const
    {
        EXPECT_NO_THROW(
            WaitUntil("as many threads and descriptors as before", [&] { return CountLeft() == left; }))
            << CountLeft() << " instead of " << left;
    }
    void Stop()
    {
        server->Signal(SIGTERM);
        EXPECT_EQ(server->WaitForExit(), 0);
        server->ExpectHealthy();
    }
    [[nodiscard]] bool HasWritten(const Row& row) const
    {
        return std::ranges::any_of(row.texts, [this](const std::string& text) {
            return server->CountLog(text) + server->CountOutput(text) > 0;
        });
    }
    void ExpectWritten(const Row& row) const
    {
        EXPECT_NO_THROW(WaitUntil("its text", [&] { return row.mayBeSilent || HasWritten(row); }));
    }
    static std::string Trace(const Row& row, int nth)
    {
        std::ostringstream text;
        text << row.function << " " << row.error << ", call " << nth << ", at 0x" << std::hex
             << Control().caller;
        return text.str();
    }

    // Each returns whether the call was reached.
    bool FailAtStart(const Row& row, int nth)
    {
        Arm(row, nth);
        Start();
        const bool hasFailed = Control().hasFailed;
        SCOPED_TRACE(Trace(row, nth));
        if (hasFailed)
            ExpectWritten(row);
        if (!HasWritten(row))
            Disarm(); // no short waits: it serves
        try {
            LogInAndRead();
        } catch (const std::runtime_error& failure) { // it does not serve, and has said why
            EXPECT_TRUE(Control().hasFailed) << failure.what();
        }
        Disarm();
        Stop();
        return hasFailed;
    }
    bool FailAtStop(const Row& row, int nth)
    {
        Start();
        Watch();
        Watcher watcher;
        Arm(row, nth);
        Stop();
        SCOPED_TRACE(Trace(row, nth));
        ExpectWritten(row);
        return Control().hasFailed;
    }
    bool FailServing(const Row& row, Phase phase, int nth)
    {
        Arm(row, nth);
        try {
            (this->*phase)();
        } catch (const std::runtime_error& failure) {
            SCOPED_TRACE(Trace(row, nth));
            EXPECT_TRUE(Control().hasFailed) << failure.what();
        }
        SCOPED_TRACE(Trace(row, nth));
        AwaitQuiet();
        const bool hasFailed = Control().hasFailed;
        Disarm();
        (this->*phase)();
        LogInAndRead();
        AwaitQuiet();
        if (hasFailed)
            ExpectWritten(row);
        server->ExpectHealthy();
        server->ForgetWritten();
        return hasFailed;
    }
    bool Fail(const Case& c, int nth)
    {
        if (c.phase == "startup")
            return FailAtStart(c.row, nth);
        if (c.phase == "stop")
            return FailAtStop(c.row, nth);
        const auto* const phase = std::ranges::find(kPhases, c.phase, [](const auto& p) { return p.first; });
        return FailServing(c.row, phase->second, nth);
    }
    void Sweep(const Case& c)
    {
        const bool isServing = c.phase != "startup" && c.phase != "stop";
        if (isServing)
            Start();
        int nth = 1;
        while (!HasFailure() && Fail(c, nth))
            nth = nth < 30 ? nth + 1 : 2 * nth;
        if (isServing)
            Stop();
        EXPECT_GT(nth, 1) << c.row.function << " is not called here";
        std::cout << "up to " << nth << "\n";
    }

    size_t left = 0; // threads, in thousands, and descriptors of the server that has just started
};

class SweepOfCalls : public Failures, public testing::WithParamInterface<Case> {};
TEST_P(SweepOfCalls, FailOneByOne)
{
    Sweep(GetParam());
}
INSTANTIATE_TEST_SUITE_P(Sweep, SweepOfCalls, testing::ValuesIn(Cases()), [](const auto& test) {
    const Case& c = test.param;
    return c.row.function + "_" + c.row.error + "_" + c.phase;
});

// The first call of each at the start, in some shares side by side, and in a set.
class QuickCalls : public Failures, public testing::WithParamInterface<size_t> {};
constexpr size_t kShares = 6;
TEST_P(QuickCalls, FailOnce)
{
    size_t number = 0;
    for (const Case& c : Cases())
        EXPECT_TRUE(c.phase != "startup" || number++ % kShares != GetParam() || Fail(c, 1));
    if (GetParam() != 0)
        return;
    Start();
    for (const Case& c : Cases())
        EXPECT_TRUE(c.phase != "set" || Fail(c, 1));
}
INSTANTIATE_TEST_SUITE_P(Quick, QuickCalls, testing::Range<size_t>(0, kShares));

// The undisturbed scene calls what is in the table, writes none of its texts, and leaves nothing.
TEST_F(Failures, SceneWithoutAFailure)
{
    Start();
    const std::vector<Row> rows = ReadRows();
    for (const auto& [name, run] : kPhases) {
        int before[kCalls];
        std::copy_n(std::begin(Control().count), kCalls, before);
        (this->*run)();
        AwaitQuiet();
        bool isInTable[kCalls]{};
        for (const Row& row : rows)
            isInTable[row.call] |=
                std::ranges::count(row.phases, name) > 0 || std::ranges::count(row.phases, "background") > 0;
        for (int call = 0; call < kCalls; call++)
            EXPECT_TRUE(isInTable[call] || Control().count[call] == before[call])
                << kCallNames[call] << " in " << name;
    }
    for (const Row& row : rows)
        EXPECT_FALSE(HasWritten(row)) << row.function << " " << row.error;
    Stop();
}

} // namespace
