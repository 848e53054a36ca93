// corvanemsg, run as a program: commands, streams, exit statuses.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "tests/nls/support.hpp"

namespace {

using namespace corvane::test;

struct Outcome {
    int status;
    std::string output;
    std::string errors;
};

class Corvanemsg : public testing::Test {
protected:
    // Runs the program in the scratch folder, with these arguments of a shell's line.
    Outcome run(const std::string& arguments) const
    {
        const std::string line =
            "cd '" + folder.path(".") + "' && '" CORVANE_BUILD_DIR "/bin/corvanemsg' " + arguments +
            " >'" + folder.path("stdout") + "' 2>'" + folder.path("stderr") + "'";
        const int status = std::system(line.c_str());
        return {WEXITSTATUS(status), contents(folder.path("stdout")),
                contents(folder.path("stderr"))};
    }
    // A run that must go well; gives its output.
    std::string good(const std::string& arguments) const
    {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(outcome.errors, "");
        return outcome.output;
    }
    void expect(const Outcome& outcome, int status, const std::string& output,
                const std::string& errors) const
    {
        EXPECT_EQ(outcome.status, status);
        EXPECT_EQ(outcome.output, output);
        EXPECT_EQ(outcome.errors, errors);
    }

    ScratchFolder folder;
};

TEST_F(Corvanemsg, CompilesSeveralSourcesIntoOneCatalogue)
{
    folder.file("a.msg", "$set 1\n1 a\n2 b\n");
    folder.file("b.msg", "$set 1\n2 c\n$set 2\n1 d\n");
    EXPECT_EQ(good("compile -o out.cat a.msg b.msg"), "");
    EXPECT_EQ(good("dump out.cat"), "$set 1\n\n1\ta\n2\tc\n\n$set 2\n\n1\td\n\n");
}

TEST_F(Corvanemsg, DashIsStandardInputAndOutput)
{
    folder.file("a.msg", "$set 1\n1 a\n");
    EXPECT_EQ(good("compile - --output - < a.msg"), good("compile a.msg --output -"));
    EXPECT_EQ(good("dump - < a.msg"), "$set 1\n\n1\ta\n\n");
    good("compile a.msg -o a.cat");
    EXPECT_EQ(good("dump - < a.cat"), "$set 1\n\n1\ta\n\n");
}

TEST_F(Corvanemsg, MergesIntoAnExistingCatalogue)
{
    folder.file("a.msg", "$set 1\n1 a\n2 b\n");
    folder.file("b.msg", "$set 1\n2 c\n$delset 5\n");
    good("compile -o out.cat a.msg");
    const Outcome merged = run("compile --merge out.cat -o out.cat b.msg");
    expect(merged, 0, "", "gencat: specified set doesn't exist on line 3\n$delset 5\n");
    EXPECT_EQ(good("dump out.cat"), "$set 1\n\n1\ta\n2\tc\n\n");
}

TEST_F(Corvanemsg, WritesConstantsInTheChosenForm)
{
    folder.file("a.msg", "$set 3 # Err\n$ # Disk\n7 a\n");
    good("compile -o out.cat --header out.h a.msg");
    EXPECT_EQ(contents(folder.path("out.h")), "\n#define ErrSet\t0x3\n#define ErrDisk\t0x7\n");
    good("compile -o out.cat --header out.h --language c++ a.msg");
    EXPECT_EQ(contents(folder.path("out.h")),
              "\nconst long ErrSet\t= 3;\nconst long ErrDisk\t= 7;\n");
    good("compile -o out.cat --header out.h --combined a.msg");
    EXPECT_NE(contents(folder.path("out.h")).find("# define MCMakeId(s,m)"), std::string::npos);
    EXPECT_NE(contents(folder.path("out.h")).find("#define ErrDisk\t0x30007\n"), std::string::npos);
}

TEST_F(Corvanemsg, SetTwoOptionMovesSetOne)
{
    folder.file("a.msg", "$set 1\n1 a\n");
    good("compile --set2 -o out.cat a.msg");
    EXPECT_EQ(good("dump out.cat"), "$set 2\n\n1\ta\n\n");
}

TEST_F(Corvanemsg, FatalErrorLeavesTheOldCatalogueAlone)
{
    folder.file("a.msg", "$set 1\n1 a\n");
    folder.file("bad.msg", "$set -1\n");
    good("compile -o out.cat a.msg");
    const std::string before = contents(folder.path("out.cat"));

    expect(run("compile -o out.cat bad.msg"), 1, "",
           "gencat: setId's must be greater than zero on line 1\n$set -1\n");

    EXPECT_EQ(contents(folder.path("out.cat")), before);
}

TEST_F(Corvanemsg, FailedWriteLeavesNoFileBehind)
{
    folder.file("a.msg", "$set 1 # A\n1 a\n");
    const Outcome outcome = run("compile -o out.cat --header /dev/full a.msg");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "gencat: unable to write the output on line 2\n1 a\n");
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path("."))) {
        files += entry.path().filename().string().starts_with("out.") ? 1 : 0;
    }
    EXPECT_EQ(files, 0);
}

TEST_F(Corvanemsg, SaysWhatIsWrongWithItsFiles)
{
    folder.file("a.msg", "$set 1\n1 a\n");
    folder.file("empty.msg", "$ nothing\n");
    good("compile -o a.cat a.msg");
    expect(run("compile -o out.cat absent.msg"), 1, "",
           "corvanemsg: absent.msg: cannot be opened: No such file or directory\n");
    expect(run("compile -o out.cat a.cat"), 1, "",
           "corvanemsg: a.cat: is a compiled catalogue, not a source; merge it with --merge\n");
    expect(run("compile -o out.cat --merge a.msg a.msg"), 1, "",
           "corvanemsg: a.msg: is not a compiled catalogue\n");
    expect(run("compile -o /absent/out.cat a.msg"), 1, "",
           "corvanemsg: /absent/out.cat: cannot be written: No such file or directory\n");
    expect(
        run("compile -o out.cat empty.msg"), 1, "",
        "corvanemsg: the sources hold no set: a catalogue needs one, begun with '$set NUMBER'\n");
    EXPECT_FALSE(std::filesystem::exists(folder.path("out.cat")));
}

TEST_F(Corvanemsg, WrongUsageIsStatusTwo)
{
    for (const char* const arguments :
         {"", "frob", "compile", "compile -o x", "get 2", "get two 1",
          "compile -o x --combined a.msg", "compile -o x --header h --language pascal a"}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.output, "") << arguments;
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1)
            << outcome.errors;
        EXPECT_NE(outcome.errors.find("'corvanemsg --help' shows the usage"), std::string::npos);
    }
}

TEST_F(Corvanemsg, HelpAndVersionAreStatusZero)
{
    EXPECT_NE(good("--help").find("compile"), std::string::npos);
    EXPECT_NE(good("compile --help").find("--merge"), std::string::npos);
    EXPECT_EQ(good("--version").substr(0, 11), "corvanemsg ");
}

TEST_F(Corvanemsg, DumpAsJson)
{
    folder.file("a.msg", "$set 3 # Err\n$ # Disk\n7 a\\n\n8 \\377\n");
    EXPECT_EQ(good("dump --json a.msg | tr -d ' \\n'"),
              "[{\"messages\":[{\"message\":7,\"name\":\"Disk\",\"text\":\"a\\n\"},"
              "{\"message\":8,\"text\":\"\xEF\xBF\xBD\"}],\"name\":\"Err\",\"set\":3}]");
}

TEST_F(Corvanemsg, SkeletonOfAnySet)
{
    folder.file("a.msg", "$set 1\n1 one\n2 two\n$set 2\n1 eins\n");
    folder.file("b.msg", "$set 2\n1 one\n2 two\n");
    folder.file("de.msg", "$set 2\n2 zwei\n");
    EXPECT_EQ(good("skeleton a.msg"), "$set 2\n\n1\teins\n2\ttwo\n\n");
    EXPECT_EQ(good("skeleton --set 2 b.msg"), "$set 2\n\n1\tone\n2\ttwo\n\n");
    EXPECT_EQ(good("skeleton --set 2 b.msg de.msg"), "$set 2\n\n1\tone\n2\tzwei\n\n");
    expect(run("skeleton b.msg"), 1, "",
           "corvanemsg: b.msg: holds no set 1; name another with --set\n");
}

TEST_F(Corvanemsg, CheckNamesEveryDifference)
{
    folder.file("c.msg",
                "$set 2\n1 FTX1000W %s: %d\\n\n2 two\n3 %s\n4 %d%%\n5 %*d\n6 FTX1001W x\n7 "
                "end\\n\n8 same %lld\n");
    folder.file("de.msg",
                "$set 2\n1 FTX1000W %d: %s\\n\n3 %d\n4 %d%% %s\n5 %d\n6 FTX1002W x\n7 end\n8 "
                "gleich %5lld\n9 more\n");
    expect(run("check c.msg de.msg"), 1,
           "de.msg: set 2 message 1 takes %d %s where the source takes %s %d\n"
           "de.msg: set 2 message 2 is missing\n"
           "de.msg: set 2 message 3 takes %d where the source takes %s\n"
           "de.msg: set 2 message 4 takes %d %s where the source takes %d\n"
           "de.msg: set 2 message 5 takes %d where the source takes %* %d\n"
           "de.msg: set 2 message 6 must begin with FTX1001W\n"
           "de.msg: set 2 message 7 lacks the line feed at its end\n"
           "de.msg: set 2 message 9 is not in the source\n",
           "");
}

TEST_F(Corvanemsg, CheckOfSeveralTranslations)
{
    folder.file("c.msg", "$set 2\n1 a\n");
    folder.file("x.msg", "$set 2\n1 b\n");
    folder.file("y.msg", "$set 2\n2 c\n");
    EXPECT_EQ(good("check c.msg x.msg x.msg"), "");
    EXPECT_EQ(good("check --json c.msg x.msg"), "[]\n");
    const Outcome outcome = run("check --json c.msg x.msg y.msg");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.output.find("\"kind\": \"missing\""), std::string::npos);
    EXPECT_NE(outcome.output.find("\"kind\": \"superfluous\""), std::string::npos);
    EXPECT_NE(outcome.output.find("\"file\": \"y.msg\""), std::string::npos);
    EXPECT_EQ(outcome.output.find("x.msg"), std::string::npos);
}

TEST_F(Corvanemsg, GetPrintsOneText)
{
    folder.file("a.msg", "$set 2\n1 one\n2 two\\n\n");
    good("compile -o a.cat a.msg");
    EXPECT_EQ(good("get 2 1 --catalogue a.cat"), "one\n");
    EXPECT_EQ(good("get 2 2 --catalogue a.cat"), "two\n");
    EXPECT_EQ(good("get --json 2 2 --catalogue a.cat | tr -d ' \\n'"),
              "{\"catalogue\":\"a.cat\",\"message\":2,\"set\":2,\"text\":\"two\\n\"}");
    expect(run("get 2 3 --catalogue a.cat"), 1, "",
           "corvanemsg: a.cat: holds no message 3 in set 2\n");
    expect(run("get 9 1 --catalogue a.cat"), 1, "",
           "corvanemsg: a.cat: holds no message 1 in set 9\n");
    const Outcome refused = run("get 2 1 --catalogue a.msg");
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.errors.find("corvanemsg: a.msg: is no catalogue that can be read\n"),
              std::string::npos);
}

}  // namespace
