#include "sim/records.h"

namespace sim {

template <typename T>
void Records::keep(std::deque<T>& list, T entry) {
    if (history_ == 0) {
        return;
    }
    if (list.size() == history_) {
        list.pop_front();
    }
    list.push_back(std::move(entry));
}

void Records::add_request(Port port, BytesView message, bool refused) {
    ++counters.requests;
    counters.refused += refused ? 1 : 0;
    ++by_letter_[message.size() > 2 ? message[2] : 0];
    keep(requests_, Request{port, Bytes(message.begin(), message.end())});
}

void Records::add(const SetPoint& point) {
    ++counters.set_points;
    keep(set_points_, point);
}

void Records::add(const Input& input) {
    ++counters.inputs;
    keep(inputs_, input);
}

std::vector<Bytes> Records::requests(Port port) const {
    std::vector<Bytes> result;
    for (const Request& request : requests_) {
        if (request.port == port) {
            result.push_back(request.message);
        }
    }
    return result;
}

}  // namespace sim
