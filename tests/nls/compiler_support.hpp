// What the compiler's tests share: sources as texts, what they make, what they complain about.
#ifndef CORVANE_TESTS_NLS_COMPILER_SUPPORT_HPP
#define CORVANE_TESTS_NLS_COMPILER_SUPPORT_HPP

#include "nls/catalogue_compiler.h"
#include "nls/source_model.hpp"
#include "tests/nls/support.hpp"

namespace corvane::test {

// A compiler as a fresh process has it.
class Compiler {
public:
    Compiler() { reset_compiler(); }
    ~Compiler() { reset_compiler(); }
    Compiler(const Compiler&) = delete;
    Compiler& operator=(const Compiler&) = delete;

    // Parses a source; gives what was written to standard error.
    std::string parse(const std::string& source) const
    {
        const Descriptor fd(folder_.file("source.msg", source));
        Capture errors(STDERR_FILENO);
        MCParse(fd);
        return errors.take();
    }

    // Parses without a look at the diagnostics, for sources that end the process.
    void parse_openly(const std::string& source) const
    {
        const Descriptor fd(folder_.file("source.msg", source));
        MCParse(fd);
    }

    void read(const std::string& compiled) const
    {
        const Descriptor fd(folder_.file("read.cat", compiled));
        MCReadCat(fd);
    }

    [[nodiscard]] std::string compiled() const
    {
        {
            const Descriptor fd(folder_.path("out.cat"), O_RDWR | O_CREAT | O_TRUNC);
            MCWriteCat(fd);
        }
        return contents(folder_.path("out.cat"));
    }

    [[nodiscard]] std::string constants(std::int32_t type, bool combined) const
    {
        {
            const Descriptor fd(folder_.path("out.h"), O_RDWR | O_CREAT | O_TRUNC);
            MCWriteConst(fd, type, combined ? 1 : 0);
        }
        return contents(folder_.path("out.h"));
    }

    [[nodiscard]] std::string dumped() const { return printed(MCDumpcat); }
    [[nodiscard]] std::string skeleton() const { return printed(MCTranslatecat); }

    // The catalogue in memory as "set[name]{number[name]=text|...}...", names only where there are
    // any. The lists are walked backwards too and must agree.
    [[nodiscard]] static std::string model()
    {
        std::string text;
        if (cat == nullptr) return "none";
        const MCSetNode* previous_set = nullptr;
        for (const MCSetNode* set = cat->first; set != nullptr; set = set->next) {
            if (set->prev != previous_set) return "broken set list";
            previous_set = set;
            text += std::to_string(set->setId) + name(set->constName) + "{" + messages(*set) + "}";
        }
        return cat->last == previous_set ? text : "broken end of set list";
    }

private:
    static std::string name(const char* constant)
    {
        std::string text;
        if (constant != nullptr) text.append("[").append(constant).append("]");
        return text;
    }
    static std::string messages(const MCSetNode& set)
    {
        std::string text;
        const MCMessageNode* previous = nullptr;
        for (const MCMessageNode* message = set.first; message != nullptr;
             message = message->next) {
            if (message->prev != previous) return "broken message list";
            if (previous != nullptr) text += "|";
            previous = message;
            text += std::to_string(message->msgId) + name(message->constName) + "=" + message->text;
        }
        return set.last == previous ? text : "broken end of message list";
    }
    template <class Print>
    [[nodiscard]] std::string printed(Print print) const
    {
        std::FILE* const out = std::fopen(folder_.path("printed").c_str(), "w");
        print(out);
        std::fclose(out);
        return contents(folder_.path("printed"));
    }

    ScratchFolder folder_;
};

}  // namespace corvane::test
#endif
