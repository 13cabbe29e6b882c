// What has arrived at a controller and what it has sent, for inspection.
#ifndef SIM_RECORDS_H
#define SIM_RECORDS_H

#include <array>
#include <deque>

#include "sim/types.h"
#include "sim/wire.h"

namespace sim {

class Records {
public:
    explicit Records(size_t history) : history_(history) {}

    void add_request(Port port, BytesView message, bool refused);
    void add(const SetPoint& point);
    void add(const Input& input);

    std::vector<Bytes> requests(Port port) const;
    std::vector<SetPoint> set_points() const { return {set_points_.begin(), set_points_.end()}; }
    std::vector<Input> inputs() const { return {inputs_.begin(), inputs_.end()}; }
    uint64_t requests_of(char letter) const { return by_letter_[static_cast<uint8_t>(letter)]; }

    Counters counters;

private:
    struct Request {
        Port port;
        Bytes message;
    };
    template <typename T>
    void keep(std::deque<T>& list, T entry);

    size_t history_;
    std::deque<Request> requests_;
    std::deque<SetPoint> set_points_;
    std::deque<Input> inputs_;
    std::array<uint64_t, 256> by_letter_{};
};

}  // namespace sim

#endif
