// A controller that follows a script byte by byte: it fails the test when a request differs from
// the step that expects it, when a step was not used, and when bytes are left over.
#ifndef TESTS_SUPPORT_SCRIPTED_PEER_H
#define TESTS_SUPPORT_SCRIPTED_PEER_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test {

using Bytes = std::vector<uint8_t>;

// "0B 00 56" -> the three bytes.
Bytes bytes(const std::string& hex);
std::string hex(const Bytes& data);
Bytes operator+(Bytes left, const Bytes& right);

// One TCP port of the controller, which serves connections one after another.
class ScriptedPeer {
public:
    struct Piece {
        Bytes data;
        std::chrono::milliseconds pause_before{0};
    };
    enum class After { keep, close, reset };
    struct Step {
        Bytes request;             // exactly these bytes are expected first (none: reply at once)
        std::vector<Piece> reply;  // then these are sent, each in a segment of its own
        After after = After::keep;
    };

    ScriptedPeer(const std::string& address, uint16_t port);
    // Stops the peer and checks that the whole script was used.
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    void expect(const Bytes& request, const Bytes& reply, After after = After::keep);
    void expect(Step step);
    // Waits until all steps were used.
    bool done(std::chrono::milliseconds limit = std::chrono::seconds(10));
    int connections() const;

private:
    void run();
    void serve(int connection);
    bool play(int connection, const Step& step);
    bool quiet(int connection);
    bool receive(int connection, size_t count, Bytes& into);
    bool next(Step& step);
    bool stopping();
    // Waits for `descriptor`, a further step or the end. Returns whether the descriptor is ready.
    bool wait(int descriptor);

    int listener_;
    int changed_;  // an eventfd, raised by each further step and by the end
    mutable std::mutex mutex_;
    std::deque<Step> steps_;
    bool playing_ = false;
    bool stopping_ = false;
    int connections_ = 0;
    std::thread thread_;
};

}  // namespace test

#endif
