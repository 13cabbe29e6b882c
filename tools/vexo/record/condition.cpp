#include "tools/vexo/record/condition.h"

#include <algorithm>
#include <cstdlib>

#include "tools/vexo/failure.h"

namespace tool {
namespace {

constexpr int kDeepest = 100;  // parentheses in parentheses

bool is_name_letter(char letter) {
    return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '_';
}

template <typename T>
long double as(const uint8_t* value) {
    T number{};
    std::memcpy(&number, value, sizeof number);
    return number;
}

// Exact for every type.
long double number_at(uint32_t element, const uint8_t* value) {
    switch (element) {
        case VEXO_TYPE_U16:
            return as<uint16_t>(value);
        case VEXO_TYPE_U32:
            return as<uint32_t>(value);
        case VEXO_TYPE_U64:
            return as<uint64_t>(value);
        case VEXO_TYPE_I8:
            return as<int8_t>(value);
        case VEXO_TYPE_I16:
            return as<int16_t>(value);
        case VEXO_TYPE_I32:
            return as<int32_t>(value);
        case VEXO_TYPE_I64:
            return as<int64_t>(value);
        case VEXO_TYPE_F32:
            return as<float>(value);
        case VEXO_TYPE_F64:
            return as<double>(value);
        default:
            return as<uint8_t>(value);
    }
}

// A number as the variable would hold it: 0.1 of an f32 is its 0.1.
long double rounded(long double number, uint32_t element) {
    return element == VEXO_TYPE_F32   ? static_cast<float>(number)
           : element == VEXO_TYPE_F64 ? static_cast<double>(number)
                                      : number;
}

}  // namespace

void Condition::refuse(const std::string& text, size_t place, const std::string& why) {
    const std::string rest = text.substr(std::min(place, text.size()));
    throw Failure(Exit::usage, "usage",
                  "--on, place " + std::to_string(place + 1) + ", " +
                      (rest.empty() ? "at the end" : "before `" + rest + "`") + ": " + why,
                  "for instance: --on 'error_code != 0 or changed(robot_mode) and speed[0] > 1.5'");
}

// One pass from left to right, a function for each line of the grammar. Each returns the number of
// its node.
struct Condition::Parser {
    Condition& condition;
    const std::string& text;
    size_t at = 0;
    int depth = 0;

    void skip_space() {
        while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0) {
            ++at;
        }
    }
    [[noreturn]] void refuse(const std::string& why) const { Condition::refuse(text, at, why); }

    bool take(std::string_view symbol) {
        skip_space();
        const bool there = text.compare(at, symbol.size(), symbol) == 0;
        at += there ? symbol.size() : 0;
        return there;
    }
    bool take_word(std::string_view word) {
        skip_space();
        const size_t end = at + word.size();
        const bool there = text.compare(at, word.size(), word) == 0 &&
                           (end >= text.size() || !is_name_letter(text[end]));
        at += there ? word.size() : 0;
        return there;
    }
    void expect(std::string_view symbol) {
        if (!take(symbol)) {
            refuse("expected " + std::string(symbol));
        }
    }

    size_t add(Node node) {
        condition.nodes_.push_back(node);
        return condition.nodes_.size() - 1;
    }

    size_t expression() {
        size_t left = conjunction();
        while (take_word("or")) {
            left = add({Node::Kind::any, left, conjunction()});
        }
        return left;
    }
    size_t conjunction() {
        size_t left = term();
        while (take_word("and")) {
            left = add({Node::Kind::all, left, term()});
        }
        return left;
    }
    size_t term() {
        if (take("(")) {
            if (++depth > kDeepest) {
                refuse("too many parentheses");
            }
            const size_t inner = expression();
            expect(")");
            --depth;
            return inner;
        }
        const size_t before = at;
        if (take_word("changed") && take("(")) {
            Term term = variable();
            expect(")");
            return add_term(std::move(term));
        }
        at = before;
        Term term = variable();
        term.comparison = comparison();
        value(term);
        return add_term(std::move(term));
    }
    size_t add_term(Term term) {
        condition.terms_.push_back(std::move(term));
        return add({Node::Kind::term, condition.terms_.size() - 1, 0});
    }

    Term variable() {
        skip_space();
        Term term;
        term.place = at;
        if (take("'")) {
            term.name = up_to('\'');
        } else {
            const size_t begin = at;
            while (at < text.size() && is_name_letter(text[at])) {
                ++at;
            }
            term.name = text.substr(begin, at - begin);
        }
        if (term.name.empty()) {
            refuse("expected the name of a variable");
        }
        if (take("[")) {
            term.element = index();
            expect("]");
        }
        return term;
    }
    uint32_t index() {
        skip_space();
        size_t digits = 0;
        while (at + digits < text.size() && digits < 4 && text[at + digits] >= '0' &&
               text[at + digits] <= '9') {
            ++digits;
        }
        if (digits == 0) {
            refuse("expected the number of an element");
        }
        const auto number = static_cast<uint32_t>(std::stoul(text.substr(at, digits)));
        at += digits;
        return number;
    }
    std::string up_to(char quote) {
        const size_t end = text.find(quote, at);
        if (end == std::string::npos) {
            refuse(std::string("the closing ") + quote + " is missing");
        }
        std::string inner = text.substr(at, end - at);
        at = end + 1;
        return inner;
    }
    Comparison comparison() {
        constexpr std::pair<const char*, Comparison> kComparisons[] = {
            {"<=", Comparison::less_or_equal}, {">=", Comparison::greater_or_equal},
            {"==", Comparison::equal},         {"!=", Comparison::unequal},
            {"<", Comparison::less},           {">", Comparison::greater},
        };
        for (const auto& [symbol, comparison] : kComparisons) {
            if (take(symbol)) {
                return comparison;
            }
        }
        refuse("expected a comparison: < <= > >= == !=");
    }
    void value(Term& term) {
        const bool quoted = take("\"");
        if (quoted) {
            term.text = up_to('"');
            return;
        }
        skip_space();
        char* end = nullptr;
        term.number = std::strtold(text.c_str() + at, &end);
        const auto length = static_cast<size_t>(end - text.c_str()) - at;
        if (length == 0 || (at + length < text.size() && is_name_letter(text[at + length]))) {
            refuse("expected a number, or a text in double quotes");
        }
        at += length;
    }
};

Condition::Condition(const std::string& text) : text_(text) {
    Parser parser{*this, text_};
    parser.expression();
    parser.skip_space();
    if (parser.at < text_.size()) {
        parser.refuse("expected and, or, or the end");
    }
}

std::vector<std::string> Condition::names() const {
    std::vector<std::string> names;
    for (const Term& term : terms_) {
        names.push_back(term.name);
    }
    return names;
}

void Condition::bind(const mcap::Recipe& recipe) {
    size_ = recipe.bytes();
    before_.reserve(size_);
    for (Term& term : terms_) {
        bind(term, recipe);
    }
}

void Condition::bind(Term& term, const mcap::Recipe& recipe) const {
    const auto& fields = recipe.fields();
    const auto found = std::find_if(fields.begin(), fields.end(), [&](const mcap::Field& field) {
        return field.name == term.name;
    });
    if (found == fields.end()) {
        refuse(text_, term.place, "there is no such variable");
    }
    term.field = *found;
    const bool is_text = found->type == VEXO_TYPE_TEXT;
    if (term.comparison && is_text != term.text.has_value()) {
        refuse(text_, term.place, is_text ? "a text is compared with a text" : "it is no text");
    }
    if (is_text && term.comparison && *term.comparison < Comparison::equal) {
        refuse(text_, term.place, "texts are compared by == and != only");
    }
    if (term.element && *term.element >= found->shape.elements) {
        refuse(text_, term.place,
               "it has " + std::to_string(found->shape.elements) + " elements, from 0 on");
    }
    if (term.comparison && !term.element && found->shape.elements > 1) {
        refuse(text_, term.place, "it has several elements: say which, as in name[0]");
    }
    const mcap::Shape shape = found->shape;
    term.offset = found->offset + term.element.value_or(0) * shape.size;
    term.bytes = term.element ? shape.size : shape.bytes();
    term.number = rounded(term.number, shape.element);
}

bool Condition::holds(const uint8_t* values) {
    const bool result = holds(nodes_.back(), values);
    before_.assign(values, values + size_);
    return result;
}

bool Condition::holds(const Node& node, const uint8_t* values) const {
    switch (node.kind) {
        case Node::Kind::all:
            return holds(nodes_[node.left], values) && holds(nodes_[node.right], values);
        case Node::Kind::any:
            return holds(nodes_[node.left], values) || holds(nodes_[node.right], values);
        default:
            return holds(terms_[node.left], values);
    }
}

bool Condition::holds(const Term& term, const uint8_t* values) const {
    const uint8_t* value = values + term.offset;
    if (!term.comparison) {
        return !before_.empty() &&
               std::memcmp(value, before_.data() + term.offset, term.bytes) != 0;
    }
    if (term.text) {
        const std::string_view text(
            reinterpret_cast<const char*>(value),
            static_cast<size_t>(std::find(value, value + term.bytes, 0) - value));
        return (text == *term.text) == (*term.comparison == Comparison::equal);
    }
    const long double number = number_at(term.field.shape.element, value);
    switch (*term.comparison) {
        case Comparison::less:
            return number < term.number;
        case Comparison::less_or_equal:
            return number <= term.number;
        case Comparison::greater:
            return number > term.number;
        case Comparison::greater_or_equal:
            return number >= term.number;
        case Comparison::equal:
            return number == term.number;
        default:
            return number != term.number;
    }
}

}  // namespace tool
