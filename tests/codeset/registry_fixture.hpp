// A registry that nobody has initialised, with tables of its own to find.
#ifndef CORVANE_TESTS_CODESET_REGISTRY_FIXTURE_HPP
#define CORVANE_TESTS_CODESET_REGISTRY_FIXTURE_HPP

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/codeset/support.hpp"
#include "tests/codeset/table_writer.hpp"

namespace corvane::test {

namespace fs = std::filesystem;

inline constexpr const char* kVariables[] = {"CORKELDIR", "BINDIR", "KEL_CODESET", "LC_ALL",
                                             "LANG"};

// A scratch folder that is the working directory, an environment without our variables, and a
// registry that nobody has initialised.
class RegistryTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = (fs::temp_directory_path() / "codeset-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        former_ = fs::current_path();
        fs::current_path(folder_);
        for (const char* variable : kVariables) unsetenv(variable);
        (void)kel_uninit();
    }
    void TearDown() override
    {
        (void)kel_uninit();
        fs::current_path(former_);
        fs::remove_all(folder_);
        for (const char* variable : kVariables) unsetenv(variable);
        (void)setlocale(LC_ALL, "C");
    }

    static void write(const fs::path& path, const std::string& bytes)
    {
        if (path.has_parent_path()) fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
    }

    // A table that can be told from others by its value A.
    static std::string table(unsigned mark)
    {
        TableWriter writer(KEL_TYPE_ASCII_SBCS);
        writer.put16(62, mark);
        return writer.image;
    }

    // The mark of the table that a name finds; 0 when it finds none.
    static unsigned found(const char* name)
    {
        const CsPtr cs(kel_cs_new(name));
        return cs != nullptr ? cs->hdr_value_a : 0;
    }

    fs::path folder_;
    fs::path former_;
};

}  // namespace corvane::test
#endif
