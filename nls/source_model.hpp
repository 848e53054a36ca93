// The catalogue in memory of the compiler: C nodes in ascending lists, each list with an index that
// is built only when a number comes out of order.
#ifndef CORVANE_NLS_SOURCE_MODEL_HPP
#define CORVANE_NLS_SOURCE_MODEL_HPP

#include <cstdint>
#include <map>

#include "nls/catalogue_compiler.h"

namespace corvane {

// Finds numbers of one ascending list in logarithmic time, and without any memory as long as
// numbers only ascend. `List` has first and last; `number` is the node's number.
template <class List, class Node, std::int32_t Node::*number>
class ListIndex {
public:
    [[nodiscard]] Node* find(const List& list, std::int32_t wanted)
    {
        if (list.last == nullptr || wanted > list.last->*number) return nullptr;
        if (wanted == list.last->*number) return list.last;
        const auto found = nodes(list).find(wanted);
        return found == by_number_.end() ? nullptr : found->second;
    }

    // Links a node whose number the list does not hold yet. Throws before anything is changed.
    void insert(List& list, Node* node)
    {
        Node* after = nullptr;  // the node that will follow
        if (list.last != nullptr && node->*number < list.last->*number) {
            after = nodes(list).upper_bound(node->*number)->second;
        }
        if (!by_number_.empty()) by_number_.emplace(node->*number, node);
        node->next = after;
        node->prev = after == nullptr ? list.last : after->prev;
        (node->prev == nullptr ? list.first : node->prev->next) = node;
        (after == nullptr ? list.last : after->prev) = node;
    }

    void unlink(List& list, Node* node) noexcept
    {
        by_number_.erase(node->*number);
        (node->prev == nullptr ? list.first : node->prev->next) = node->next;
        (node->next == nullptr ? list.last : node->next->prev) = node->prev;
    }

private:
    std::map<std::int32_t, Node*>& nodes(const List& list)
    {
        if (by_number_.empty()) {
            std::map<std::int32_t, Node*> all;
            for (Node* node = list.first; node != nullptr; node = node->next) {
                all.emplace_hint(all.end(), node->*number, node);
            }
            by_number_.swap(all);
        }
        return by_number_;
    }

    std::map<std::int32_t, Node*> by_number_;  // empty, or every node of the list
};

// Behind the exported operations; errors throw CompileFailed.
void add_set(std::int32_t number, const char* name);
void add_message(std::int32_t number, const char* text, const char* name);
void delete_set(std::int32_t number);
void delete_message(std::int32_t number);

// The catalogue in memory, made on first use.
MCCatalogueNode& open_catalogue();

// Frees `node`'s constant name and forgets it.
void drop_name(char*& name) noexcept;

// Back to the state of a fresh process, for whoever compiles more than one catalogue.
void reset_compiler() noexcept;

}  // namespace corvane
#endif
