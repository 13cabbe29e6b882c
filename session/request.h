// Requests of callers that the I/O thread makes for them, one after another.
#ifndef SESSION_REQUEST_H
#define SESSION_REQUEST_H

#include <cstring>

#include "session/session.h"
#include "session/time.h"
#include "wire/message.h"

namespace vexo::session {

// Lies with its caller, who waits for it. All of it is guarded by the session's monitor.
struct Request {
    std::span<const uint8_t> message;
    std::span<uint8_t> reply_room;  // for what comes behind the status

    enum class Stage { queued, sent, done };
    Stage stage = Stage::queued;
    VexoSessionError error{};  // how it ended; VEXO_SESSION_OK when it was accepted
    size_t reply_bytes = 0;
    Nanoseconds round_trip = 0;

    Request* next = nullptr;
};

// Those that wait, and the one that was sent. Guarded by the session's monitor.
class RequestQueue {
public:
    void add(Request& request) {
        Request** end = &first_;
        while (*end != nullptr) {
            end = &(*end)->next;
        }
        *end = &request;
    }
    Request* front() const { return first_; }
    Request* in_flight() const { return in_flight_; }

    // The front one was sent.
    void sent() {
        in_flight_ = first_;
        in_flight_->stage = Request::Stage::sent;
        first_ = first_->next;
    }
    // The one that was sent has ended.
    void finish(const VexoSessionError& error) {
        end(*in_flight_, error);
        in_flight_ = nullptr;
    }
    // All have ended: those that were not sent, with another error.
    void finish_all(const VexoSessionError& sent_error, const VexoSessionError& queued_error) {
        if (in_flight_ != nullptr) {
            finish(sent_error);
        }
        while (first_ != nullptr) {
            Request& request = *first_;
            first_ = request.next;
            end(request, queued_error);
        }
    }
    // Its caller does not wait any longer.
    void withdraw(Request& request) {
        if (in_flight_ == &request) {
            in_flight_ = nullptr;
        }
        Request** place = &first_;
        while (*place != nullptr && *place != &request) {
            place = &(*place)->next;
        }
        if (*place != nullptr) {
            *place = request.next;
        }
    }

private:
    static void end(Request& request, const VexoSessionError& error) {
        request.error = error;
        request.stage = Request::Stage::done;
        request.next = nullptr;
    }

    Request* first_ = nullptr;
    Request* in_flight_ = nullptr;
};

}  // namespace vexo::session

#endif
