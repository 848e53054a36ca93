// Debug output: five functions over three slots, and the level bands.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mdcmain/log.hpp"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> g_first;
std::vector<std::string> g_second;
std::vector<std::string> g_error;

class DebugOutput : public ::testing::Test {
protected:
    DebugOutput()
    {
        dbgSetOutputStringHandler([](const char* text) { g_first.emplace_back(text); });
        dbgSetOutputStringHandler2([](const char* text) { g_second.emplace_back(text); });
        dbgSetOutputStringHandlerErr([](const char* text) { g_error.emplace_back(text); });
    }
    ~DebugOutput() override
    {
        dbgSetOutputStringHandler(nullptr);
        dbgSetOutputStringHandler2(nullptr);
        dbgSetOutputStringHandlerErr(nullptr);
        for (auto* lines : {&g_first, &g_second, &g_error}) lines->clear();
    }
};

TEST_F(DebugOutput, EachFunctionHasItsSlot)
{
    corvane_dbg("dbg %d\n", 1);
    corvane_trace("trace %s\n", "x");
    corvane_error("error%%\n");
    print("print %c\n", 'p');
    warning("warning %x\n", 255U);

    EXPECT_THAT(g_first, ElementsAre("dbg 1\n", "trace x\n", "error%\n"));
    EXPECT_THAT(g_second, ElementsAre("print p\n"));
    EXPECT_THAT(g_error, ElementsAre("warning ff\n"));
}

TEST_F(DebugOutput, TextsGoToTheirSlotAsTheyAre)
{
    outputString("a %s");
    outputString2("b %n");
    outputStringErr("c %%");

    EXPECT_THAT(g_first, ElementsAre("a %s"));
    EXPECT_THAT(g_second, ElementsAre("b %n"));
    EXPECT_THAT(g_error, ElementsAre("c %%"));
}

TEST_F(DebugOutput, AnEmptySlotDropsTheText)
{
    dbgSetOutputStringHandler(nullptr);

    corvane_dbg("lost\n");
    outputString("lost\n");
    dumpData("lost", 4);

    EXPECT_THAT(g_first, IsEmpty());
    EXPECT_FALSE(corvane::trace_wanted());
}

TEST_F(DebugOutput, LinesPassUpTo1023BytesAndAreCutThere)
{
    for (const std::size_t length : {1022U, 1023U, 1024U, 5000U}) {
        g_first.clear();
        corvane_trace("%s", std::string(length, 'x').c_str());
        EXPECT_THAT(g_first, ElementsAre(std::string(std::min<std::size_t>(length, 1023), 'x')));
    }
}

TEST_F(DebugOutput, ABandTurnsLinesAwayBeforeTheyAreFormatted)
{
    std::int32_t level = 0;
    corvane::g_trace_slot.lowest = 3;
    corvane::g_trace_slot.highest = INT32_MAX;
    corvane::g_trace_slot.level = &level;
    int asked = 0;
    const auto argument = [&asked] { return ++asked; };

    for (level = 1; level <= 4; ++level) CORVANE_TRACE("level %d, %d\n", level, argument());

    EXPECT_THAT(g_first, ElementsAre("level 3, 1\n", "level 4, 2\n"));
    EXPECT_EQ(asked, 2);
}

TEST_F(DebugOutput, ANewHandlerTakesEverythingAgain)
{
    std::int32_t level = 0;
    corvane::g_trace_slot.lowest = 3;
    corvane::g_trace_slot.level = &level;

    dbgSetOutputStringHandler([](const char* text) { g_second.emplace_back(text); });
    corvane_dbg("now\n");

    EXPECT_THAT(g_second, ElementsAre("now\n"));
}

}  // namespace
