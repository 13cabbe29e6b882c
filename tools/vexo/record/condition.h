// When a black box writes: an expression over the variables of a package.
//
//   expression = conjunction { "or" conjunction }
//   conjunction = term { "and" term }
//   term = "(" expression ")" | "changed" "(" variable ")" | variable comparison value
//   variable = name [ "[" index "]" ]        a name with other letters than those of the alphabet,
//                                            digits and _ stands in single quotes
//   comparison = "<" | "<=" | ">" | ">=" | "==" | "!="
//   value = number | "text"                  numbers as in C; a text in double quotes
//
// A variable of several elements needs an index (from 0) where it is compared; changed() looks at
// all of them without one. Texts are compared by == and != only.
#ifndef TOOLS_VEXO_RECORD_CONDITION_H
#define TOOLS_VEXO_RECORD_CONDITION_H

#include <optional>

#include "tools/mcap/recipe.h"

namespace tool {

class Condition {
public:
    // Throws a Failure (usage) that names the place of what is wrong.
    explicit Condition(const std::string& text);

    // The variables that it looks at.
    std::vector<std::string> names() const;
    // Says where they are in a package. Throws as the constructor does.
    void bind(const mcap::Recipe& recipe);

    // Of a package, by itself and the one before. Nothing has changed in the first one.
    bool holds(const uint8_t* values);

private:
    enum class Comparison { less, less_or_equal, greater, greater_or_equal, equal, unequal };
    struct Term {
        std::string name;
        size_t place = 0;  // in the text, from 0
        std::optional<uint32_t> element;
        std::optional<Comparison> comparison;  // none: changed()
        std::optional<std::string> text;
        long double number = 0;
        mcap::Field field{};
        uint32_t offset = 0;
        uint32_t bytes = 0;
    };
    struct Node {
        enum class Kind { term, all, any } kind;
        size_t left;  // of a term: its number
        size_t right;
    };
    struct Parser;

    void bind(Term& term, const mcap::Recipe& recipe) const;
    bool holds(const Node& node, const uint8_t* values) const;
    bool holds(const Term& term, const uint8_t* values) const;
    [[noreturn]] static void refuse(const std::string& text, size_t place, const std::string& why);

    std::string text_;
    std::vector<Term> terms_;
    std::vector<Node> nodes_;
    mcap::Bytes before_;
    size_t size_ = 0;
};

}  // namespace tool

#endif
