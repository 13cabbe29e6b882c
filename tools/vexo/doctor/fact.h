// A fact of the host, or why it is not known.
#ifndef TOOLS_VEXO_DOCTOR_FACT_H
#define TOOLS_VEXO_DOCTOR_FACT_H

#include <optional>
#include <string>
#include <utility>

namespace doctor {

template <class T>
class Fact {
public:
    Fact() = default;
    Fact(T value) : value_(std::move(value)) {}

    static Fact unknown(std::string reason) { return Fact(std::move(reason), false); }
    // The host has no such thing: what is asked about it does not apply.
    static Fact absent(std::string reason) { return Fact(std::move(reason), true); }

    bool known() const { return value_.has_value(); }
    bool absent() const { return absent_; }
    const T& operator*() const { return *value_; }
    const T* operator->() const { return &*value_; }
    const std::string& reason() const { return reason_; }

    // Of a fact that follows from this one.
    template <class Convert>
    auto then(Convert convert) const -> Fact<decltype(convert(std::declval<T>()))> {
        using Result = Fact<decltype(convert(std::declval<T>()))>;
        if (known()) {
            return Result(convert(*value_));
        }
        return absent_ ? Result::absent(reason_) : Result::unknown(reason_);
    }

private:
    Fact(std::string reason, bool absent) : reason_(std::move(reason)), absent_(absent) {}

    std::optional<T> value_;
    std::string reason_ = "not recorded";
    bool absent_ = false;
};

}  // namespace doctor

#endif
