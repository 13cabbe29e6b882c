// The requests of the interface, each with what tells its reply from no reply.
#ifndef TESTS_END_TO_END_REQUESTS_H
#define TESTS_END_TO_END_REQUESTS_H

#include <optional>
#include <vector>

#include "tests/end_to_end/application.h"

namespace test {

// What a request hands out: one of these, the rest stays.
union Handed {
    uint8_t bytes[sizeof(VexoVariablePage)];
    uint32_t recipe_id;
    uint64_t bits;
    VexoVariablePage variables;
    VexoMethodPage methods;
    VexoControllerVersion version;
};

// How a request takes its reply: by one receive, however long it takes; by one that waits for 5 ms;
// or by as many as the page needs.
enum class Receives { single, hasty, page };

struct Request {
    const char* function;  // that its texts name
    int32_t (*call)(Application& app, Handed& handed);
    const char* message;  // its bytes; empty for a set-point, which has a running number
    Receives receives = Receives::single;
    size_t socket = kIoSocketOffset;
    int64_t mode = 2;
    const char* variant = "";       // tells rows of one function apart
    uint8_t streaming = 0;          // the streaming flag once it was accepted
    const char* printed = "";       // behind the reply, whatever its status
    bool within_catalogue = false;  // the last page of vexo_all_recipe_get()
};

// All requests over TCP, and a request of each kind beside the raw path. They suit an application
// that connect_small() has prepared.
const std::vector<Request>& requests();
std::string name_of(const Request& request);
void PrintTo(const Request& request, std::ostream* out);

// A controller with a catalogue that is small, and of which nothing moves or is streamed.
sim::Options small_controller();
// Connects, loads the catalogue, and sets an output recipe up.
void connect_small(Application& app, int64_t mode = 2);

// A request on a connection on which the same request has succeeded already.
class RequestFixture : public ::testing::Test {
protected:
    explicit RequestFixture(const Request& request) : request_(request) {}

    void SetUp() override;
    void TearDown() override;

    Outcome call();
    void inject(const std::string& fault);
    Bytes handed() const { return Bytes(std::begin(handed_.bytes), std::end(handed_.bytes)); }
    Bytes reply() const { return bytes_of(kResponseOffset, kResponseOffset + reply_size_); }

    // What stands in the dataspace before the message buffers, and behind them up to the name
    // index; lengths and addresses. The count of set-points is left out: it goes on.
    Bytes state() const;

    const Request request_;
    std::optional<sim::Simulator> controller_;
    std::optional<Application> app_;
    Handed handed_;
    size_t reply_size_ = 0;

private:
    Bytes bytes_of(size_t begin, size_t end) const {
        return Bytes(app_->dataspace() + begin, app_->dataspace() + end);
    }
};

// Those that take their replies in one of these ways.
std::vector<Request> those_with(std::initializer_list<Receives> kinds);

}  // namespace test

#endif
