// Sets and messages of the catalogue compiler: creation in order, replacement, deletion.
#include "nls/source_model.hpp"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "nls/compiler_diagnostics.hpp"

MCCatalogueNode* cat = nullptr;
MCSetNode* curSet = nullptr;
std::int32_t set2flag = 0;

namespace {

// The exported nodes, each list holder with its index behind it.
struct SetNode : MCSetNode {
    corvane::ListIndex<MCSetNode, MCMessageNode, &MCMessageNode::msgId> messages;
};
struct CatalogueNode : MCCatalogueNode {
    corvane::ListIndex<MCCatalogueNode, MCSetNode, &MCSetNode::setId> sets;
};

SetNode& whole(MCSetNode* set) noexcept
{
    return *static_cast<SetNode*>(set);
}
CatalogueNode& whole_catalogue()
{
    return static_cast<CatalogueNode&>(corvane::open_catalogue());
}

struct CFree {
    void operator()(char* text) const noexcept { std::free(text); }
};
using OwnedText = std::unique_ptr<char, CFree>;

OwnedText copy_of(const char* text)
{
    if (text == nullptr) return nullptr;
    OwnedText copy(strdup(text));
    if (copy == nullptr) throw std::bad_alloc{};
    return copy;
}

void replace(char*& field, OwnedText value) noexcept
{
    std::free(field);
    field = value.release();
}

void free_message(MCMessageNode* message) noexcept
{
    std::free(message->text);
    std::free(message->constName);
    delete message;
}

void free_set(MCSetNode* set) noexcept
{
    while (MCMessageNode* const message = set->first) {
        set->first = message->next;
        free_message(message);
    }
    std::free(set->constName);
    delete &whole(set);
}

}  // namespace

namespace corvane {

MCCatalogueNode& open_catalogue()
{
    if (cat == nullptr) cat = new CatalogueNode{};
    return *cat;
}

void drop_name(char*& name) noexcept
{
    replace(name, nullptr);
}

void add_set(std::int32_t number, const char* name)
{
    if (number < 0) compile_error("setId's must be greater than zero");
    CatalogueNode& catalogue = whole_catalogue();
    OwnedText own_name = copy_of(name);
    MCSetNode* set = catalogue.sets.find(catalogue, number);
    if (set == nullptr) {
        auto made = std::make_unique<SetNode>();
        made->setId = number;
        catalogue.sets.insert(catalogue, made.get());
        set = made.release();
    }
    replace(set->constName, std::move(own_name));
    curSet = set;
}

void add_message(std::int32_t number, const char* text, const char* name)
{
    if (curSet == nullptr) compile_error("can't specify a message when no set exists");
    if (number < 1) compile_error("msgId's must be greater than zero");
    SetNode& set = whole(curSet);
    OwnedText own_text = copy_of(text == nullptr ? "" : text);
    OwnedText own_name = copy_of(name);
    MCMessageNode* message = set.messages.find(set, number);
    if (message == nullptr) {
        auto made = std::make_unique<MCMessageNode>();
        made->msgId = number;
        set.messages.insert(set, made.get());
        message = made.release();
    }
    replace(message->text, std::move(own_text));
    replace(message->constName, std::move(own_name));
}

void delete_set(std::int32_t number)
{
    // Deleting makes no catalogue where there is none.
    MCSetNode* const set =
        cat == nullptr ? nullptr : whole_catalogue().sets.find(whole_catalogue(), number);
    if (set == nullptr) {
        compile_warning("specified set doesn't exist");
        return;
    }
    CatalogueNode& catalogue = whole_catalogue();
    catalogue.sets.unlink(catalogue, set);
    if (curSet == set) curSet = nullptr;  // the next message needs a set directive first
    free_set(set);
}

void delete_message(std::int32_t number)
{
    if (curSet == nullptr) compile_error("you can't delete a message before defining the set");
    SetNode& set = whole(curSet);
    MCMessageNode* const message = set.messages.find(set, number);
    if (message == nullptr) {
        compile_warning("specified msg doesn't exist");
        return;
    }
    set.messages.unlink(set, message);
    free_message(message);
}

void reset_compiler() noexcept
{
    if (cat != nullptr) {
        while (MCSetNode* const set = cat->first) {
            cat->first = set->next;
            free_set(set);
        }
        delete static_cast<CatalogueNode*>(cat);
    }
    cat = nullptr;
    curSet = nullptr;
    set2flag = 0;
    lineno = 0;
    std::free(curline);
    curline = nullptr;
}

}  // namespace corvane

void MCAddSet(std::int32_t number, const char* name) noexcept
{
    corvane::compile_or_exit([&] { corvane::add_set(number, name); });
}

void MCAddMsg(std::int32_t number, const char* text, const char* name) noexcept
{
    corvane::compile_or_exit([&] { corvane::add_message(number, text, name); });
}

void MCDelSet(std::int32_t number) noexcept
{
    corvane::compile_or_exit([&] { corvane::delete_set(number); });
}

void MCDelMsg(std::int32_t number) noexcept
{
    corvane::compile_or_exit([&] { corvane::delete_message(number); });
}
