// Listens to a client's requests and the controller's replies for what packages are made of.
#ifndef TOOLS_CAPTURE_DIALOGUE_H
#define TOOLS_CAPTURE_DIALOGUE_H

#include <deque>
#include <functional>

#include "tools/capture/reassembly.h"
#include "tools/capture/recipes.h"
#include "wire/message.h"

namespace capture {

// Cuts a stream into messages. Behind a gap, and behind bytes that cannot be one, the next message
// is looked for where the next segment begins.
class Messages : public ByteSink {
public:
    explicit Messages(std::function<void(Bytes)> take) : take_(std::move(take)) {}

    void bytes(Bytes bytes, int64_t time_ns) override;
    void gap(size_t) override { waiting_.clear(); }

private:
    std::function<void(Bytes)> take_;
    std::vector<uint8_t> waiting_;
};

class Dialogue {
public:
    // What it learns goes to the recipes; `station` is told the controller's address in raw frames.
    Dialogue(Recipes& recipes, std::function<void(const MacBytes&)> station)
        : recipes_(recipes), station_(std::move(station)) {}

    ByteSink& requests() { return requests_; }
    ByteSink& replies() { return replies_; }
    // A new connection.
    void begin();

private:
    struct Request {
        vexo::wire::Letter letter{};
        uint32_t first = 0;         // row of a page
        bool frames = false;        // of a negotiation: cyclic data goes in raw frames
        std::vector<uint32_t> ids;  // of a recipe
    };

    void take_request(Bytes message);
    void take_reply(Bytes message);
    void take_accepted(const Request& request, Bytes reply);
    template <typename Row, typename Entry>
    void take_page(const Request& request, Bytes reply, std::vector<Entry>& list);

    Recipes& recipes_;
    std::function<void(const MacBytes&)> station_;
    Messages requests_{[this](Bytes message) { take_request(message); }};
    Messages replies_{[this](Bytes message) { take_reply(message); }};
    std::deque<Request> pending_;
    Catalogue seen_;
};

}  // namespace capture

#endif
