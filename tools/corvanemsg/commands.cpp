// The commands of corvanemsg.
#include "tools/corvanemsg/commands.hpp"

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "nls/catalogue_compiler.h"
#include "nls/catalogue_handle.hpp"
#include "nls/catalogue_runtime.h"
#include "nls/compiler_core.hpp"
#include "nls/set_state.hpp"
#include "nls/source_model.hpp"
#include "tools/corvanemsg/check.hpp"
#include "tools/corvanemsg/failure.hpp"
#include "tools/corvanemsg/input.hpp"
#include "tools/corvanemsg/output.hpp"

namespace corvane::msg {

namespace {

using Json = nlohmann::json;

void finish_stdout()
{
    if (std::fflush(stdout) != 0) throw Failure("standard output cannot be written");
}

void print(const Json& value)
{
    // A text need not be UTF-8; what is not is shown replaced.
    std::puts(value.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

Json messages_json(const MCSetNode& set)
{
    Json messages = Json::array();
    for (const MCMessageNode* message = set.first; message != nullptr; message = message->next) {
        Json entry = {{"message", message->msgId}, {"text", message->text}};
        if (message->constName != nullptr) entry["name"] = message->constName;
        messages.push_back(std::move(entry));
    }
    return messages;
}

Json catalogue_json()
{
    Json sets = Json::array();
    for (const MCSetNode* set = cat->first; set != nullptr; set = set->next) {
        Json entry = {{"set", set->setId}, {"messages", messages_json(*set)}};
        if (set->constName != nullptr) entry["name"] = set->constName;
        sets.push_back(std::move(entry));
    }
    return sets;
}

// Copies the messages of a set to set 1, of which skeletons are made, and drops all others.
void make_set_one(std::int32_t number)
{
    if (number == 1) return;
    const Texts texts = texts_in_memory();
    reset_compiler();
    for (const auto& [key, text] : texts) {
        if (key.first != number) continue;
        add_set(1, nullptr);
        add_message(key.second, text.c_str(), nullptr);
    }
}

Json finding_json(const std::string& file, const Finding& finding)
{
    return {{"file", file},
            {"set", finding.set},
            {"message", finding.message},
            {"kind", finding.kind},
            {"words", finding.words}};
}

}  // namespace

void compile(const CompileOptions& options)
{
    set2flag = options.set_one_is_two ? 1 : 0;
    if (!options.merge.empty()) load_compiled(options.merge);
    for (const std::string& source : options.sources) load_source(source);
    if (cat->first == nullptr) {
        throw Failure("the sources hold no set: a catalogue needs one, begun with '$set NUMBER'");
    }
    Output catalogue(options.output);
    write_compiled(catalogue.fd());
    if (!options.header.empty()) {
        Output header(options.header);
        write_constants(header.fd(), options.language, options.combined);
        header.commit();
    }
    catalogue.commit();
}

void dump(const std::vector<std::string>& inputs, bool json)
{
    for (const std::string& input : inputs) load_any(input);
    if (json) {
        print(catalogue_json());
    } else {
        MCDumpcat(stdout);
    }
    finish_stdout();
}

void skeleton(const std::string& source, const std::string& translation, std::int32_t set)
{
    load_any(source);
    make_set_one(set);
    if (cat == nullptr || cat->first == nullptr || cat->first->setId > 1) {
        throw Failure(source + ": holds no set " + std::to_string(set) +
                      "; name another with --set");
    }
    set2flag = 1;
    if (!translation.empty()) load_any(translation);
    write_skeleton(stdout);
    finish_stdout();
}

bool check(const std::string& source, const std::vector<std::string>& translations, bool json)
{
    load_any(source);
    const Texts wanted = texts_in_memory();
    auto found = Json::array();
    for (const std::string& translation : translations) {
        reset_compiler();
        load_any(translation);
        for (const Finding& finding : compare(wanted, texts_in_memory())) {
            found.push_back(finding_json(translation, finding));
            if (json) continue;
            std::printf("%s: set %d message %d %s\n", translation.c_str(), finding.set,
                        finding.message, finding.words.c_str());
        }
    }
    if (json) print(found);
    finish_stdout();
    return found.empty();
}

void get(const std::string& catalogue, std::int32_t set, std::int32_t message, bool json)
{
    char path[VOR_PATH_BYTES] = "";
    if (catalogue.empty()) vor_getNlsPath(path);
    const std::string name = catalogue.empty() ? path : catalogue;
    if (name.empty())
        throw Failure("no catalogue is installed for this language; name one with --catalogue");
    vor_catalogue* const opened = vor_catopen(name.c_str(), 0);
    if (opened == nullptr || opened == kNoCatalogue)
        throw Failure(name + ": is no catalogue that can be read");
    // Not vor_catgets: it would make the shared settings where there are none yet.
    const MCMsgT* const found = MCGetMsg(MCGetSet(opened, set), message);
    if (found == nullptr) {
        throw Failure(name + ": holds no message " + std::to_string(message) + " in set " +
                      std::to_string(set));
    }
    const char* const text = slot_address<const char>(found->textOffset);
    if (json) {
        print({{"catalogue", name}, {"set", set}, {"message", message}, {"text", text}});
    } else {
        std::fputs(text, stdout);
        if (*text == '\0' || text[std::strlen(text) - 1] != '\n') std::putchar('\n');
    }
    finish_stdout();
}

}  // namespace corvane::msg
