// Build program: writes the built-in message table as C++ from the daemon's message source.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "nls/catalogue.h"
#include "nls/catalogue_compiler.h"

namespace {

constexpr std::int32_t kDaemonSet = 2;

// The plug-in loader's messages stand in the catalogue alone.
constexpr std::int32_t kFirstCatalogueOnly = 326;
constexpr std::int32_t kLastCatalogueOnly = 331;

std::string literal(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '\n') {
            quoted += "\\n";
            continue;
        }
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

std::vector<std::string> placeholders()
{
    std::vector<std::string> texts(CORVANECAT_ENTRIES);
    for (std::size_t number = 0; number < texts.size(); ++number) {
        texts[number] = "unused" + std::to_string(number);
    }
    texts[0] = "corvanecat";
    return texts;
}

bool fill(std::vector<std::string>& texts)
{
    for (const MCSetNode* set = cat->first; set != nullptr; set = set->next) {
        if (set->setId != kDaemonSet) continue;
        for (const MCMessageNode* message = set->first; message != nullptr;
             message = message->next) {
            if (message->msgId >= CORVANECAT_ENTRIES) {
                std::fprintf(stderr, "message %d is beyond the built-in table\n", message->msgId);
                return false;
            }
            const bool catalogue_only =
                message->msgId >= kFirstCatalogueOnly && message->msgId <= kLastCatalogueOnly;
            texts[static_cast<std::size_t>(message->msgId)] =
                catalogue_only ? "Error not defined\n" : message->text;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SOURCE.msg TABLE.cpp\n", argv[0]);
        return 2;
    }
    const int source = open(argv[1], O_RDONLY | O_CLOEXEC);
    if (source < 0) {
        std::perror(argv[1]);
        return 1;
    }
    MCParse(source);
    close(source);
    std::vector<std::string> texts = placeholders();
    if (!fill(texts)) return 1;
    std::ofstream out(argv[2]);
    out << "// Built-in texts by message number, generated from the daemon's message source.\n"
           "#include \"nls/catalogue.h\"\n\n"
           "const char* const corvanecat[CORVANECAT_ENTRIES] = {\n";
    for (const std::string& text : texts) out << "    " << literal(text) << ",\n";
    out << "};\n";
    return out.flush() ? 0 : 1;
}
