// The editing operations that the parser uses, called directly.
#include <gtest/gtest.h>

#include "tests/nls/compiler_support.hpp"

namespace {

using namespace corvane::test;

TEST(Editing, SetsAreKeptInOrderAndReused)
{
    const Compiler compiler;
    EXPECT_EQ(Compiler::model(), "none");
    for (const std::int32_t number : {5, 0, 9, 3, 5}) MCAddSet(number, nullptr);
    EXPECT_EQ(Compiler::model(), "0{}3{}5{}9{}");
    EXPECT_EQ(curSet->setId, 5);
}

TEST(Editing, NamesAndTextsAreCopied)
{
    const Compiler compiler;
    std::string name = "Name";
    std::string text = "text";
    MCAddSet(1, name.c_str());
    MCAddMsg(1, text.c_str(), name.c_str());
    name = "....";
    text = "....";
    EXPECT_EQ(Compiler::model(), "1[Name]{1[Name]=text}");
}

TEST(Editing, ExistingMessageGetsTextAndName)
{
    const Compiler compiler;
    MCAddSet(1, nullptr);
    MCAddMsg(2, "old", "Old");
    MCAddMsg(2, "new", nullptr);
    EXPECT_EQ(Compiler::model(), "1{2=new}");
}

TEST(Editing, MessagesAreDeletedAtEveryPlace)
{
    const Compiler compiler;
    MCAddSet(1, nullptr);
    for (const std::int32_t number : {1, 2, 3, 4, 5}) MCAddMsg(number, "x", nullptr);
    MCDelMsg(3);
    EXPECT_EQ(Compiler::model(), "1{1=x|2=x|4=x|5=x}");
    MCDelMsg(1);
    MCDelMsg(5);
    EXPECT_EQ(Compiler::model(), "1{2=x|4=x}");
    MCAddMsg(3, "y", nullptr);
    MCDelMsg(2);
    MCDelMsg(4);
    MCDelMsg(3);
    EXPECT_EQ(Compiler::model(), "1{}");
    MCAddMsg(7, "z", nullptr);
    EXPECT_EQ(Compiler::model(), "1{7=z}");
}

TEST(Editing, DeletingWhatIsNotThereWarns)
{
    const Compiler compiler;
    MCAddSet(1, nullptr);
    Capture errors(STDERR_FILENO);
    MCDelSet(2);
    MCDelMsg(8);
    EXPECT_EQ(errors.take(),
              "gencat: specified set doesn't exist on line 0\n\n"
              "gencat: specified msg doesn't exist on line 0\n\n");
    EXPECT_EQ(Compiler::model(), "1{}");
}

TEST(Editing, DeletingMakesNoCatalogue)
{
    const Compiler compiler;
    Capture errors(STDERR_FILENO);
    MCDelSet(1);
    EXPECT_EQ(errors.take(), "gencat: specified set doesn't exist on line 0\n\n");
    EXPECT_EQ(cat, nullptr);
}

TEST(Editing, FatalErrorsEndTheProcess)
{
    const Compiler compiler;
    const auto dies = testing::ExitedWithCode(1);
    EXPECT_EXIT(MCAddSet(-1, nullptr), dies,
                "^gencat: setId's must be greater than zero on line 0\n\n$");
    EXPECT_EXIT(MCAddMsg(1, "a", nullptr), dies,
                "^gencat: can't specify a message when no set exists on line 0\n\n$");
    EXPECT_EXIT(MCDelMsg(1), dies,
                "^gencat: you can't delete a message before defining the set on line 0\n\n$");
    MCAddSet(0, nullptr);
    EXPECT_EXIT(MCAddMsg(0, "a", nullptr), dies,
                "^gencat: msgId's must be greater than zero on line 0\n\n$");
    EXPECT_EXIT(MCAddMsg(-5, "a", nullptr), dies,
                "^gencat: msgId's must be greater than zero on line 0\n\n$");
}

}  // namespace
