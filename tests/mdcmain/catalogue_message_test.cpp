// Which texts of a catalogue may be formatted with which arguments.
#include "mdcmain/catalogue_message.hpp"

#include <gtest/gtest.h>

#include <string>

namespace corvane {
namespace {

struct Text {
    const char* name;
    const char* text;
    bool fits;
};
class CatalogueText : public ::testing::TestWithParam<Text> {};

// The arguments are a text, an int and a long long.
TEST_P(CatalogueText, FitsOnlyItsArguments)
{
    const ArgumentKind kinds[] = {ArgumentKind::kText, ArgumentKind::kInt, ArgumentKind::kLongLong};
    EXPECT_EQ(takes_arguments(GetParam().text, kinds, 3), GetParam().fits) << GetParam().text;
}
INSTANTIATE_TEST_SUITE_P(
    Texts, CatalogueText,
    ::testing::Values(Text{"none", "Error not defined\n", true},
                      Text{"all", "%s, %d, %lld\n", true}, Text{"fewer", "%s only\n", true},
                      Text{"percent", "100%% of %s\n", true},
                      Text{"widths", "%-20.3s %05d %llX", true},
                      Text{"unsigned_and_hex", "%s %u %llx", true},
                      Text{"more", "%s %d %lld %d", false}, Text{"wrong_order", "%d %s", false},
                      Text{"int_for_long_long", "%s %d %d", false},
                      Text{"long_long_for_int", "%s %lld", false}, Text{"long", "%s %ld", false},
                      Text{"wide_text", "%ls", false}, Text{"long_long_text", "%lls", false},
                      Text{"write_back", "%n", false}, Text{"star", "%*s", false},
                      Text{"star_precision", "%.*s", false}, Text{"position", "%1$s", false},
                      Text{"pointer", "%p", false}, Text{"floating", "%f", false},
                      Text{"half", "broken %", false}, Text{"half_long", "broken %ll", false}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace corvane
