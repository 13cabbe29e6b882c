// A session with a simulated controller.
#ifndef TESTS_SESSION_SESSION_FIXTURE_H
#define TESTS_SESSION_SESSION_FIXTURE_H

#include <gmock/gmock.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "session/session.h"
#include "sim/simulator.h"
#include "tests/support/network_namespace.h"
#include "tests/support/process.h"

namespace test {

constexpr int64_t kSoon = 20'000'000;  // microseconds: far longer than anything takes

template <typename Structure>
Structure sized() {
    Structure structure{};
    structure.size = sizeof structure;
    return structure;
}

inline VexoSessionError last_error() {
    auto error = sized<VexoSessionError>();
    vexo_session_error(&error);
    return error;
}

#define EXPECT_OK(call) EXPECT_EQ(call, VEXO_SESSION_OK) << test::last_error().cause
#define ASSERT_OK(call) ASSERT_EQ(call, VEXO_SESSION_OK) << test::last_error().cause

// What a cursor gives, record by record.
class Records {
public:
    explicit Records(VexoSessionStream* stream) : layout_(sized<VexoSessionLayout>()) {
        EXPECT_OK(vexo_session_stream_layout(stream, &layout_));
    }

    size_t read(VexoSessionCursor* cursor, uint32_t capacity) {
        bytes_.resize(size_t{capacity} * layout_.record_size);
        uint32_t count = 0;
        EXPECT_OK(vexo_session_cursor_read(cursor, bytes_.data(), capacity, &count, &lost));
        return count;
    }
    const uint8_t* record(size_t index) const { return &bytes_[index * layout_.record_size]; }
    VexoSessionPackage package(size_t index) const {
        VexoSessionPackage package;
        std::memcpy(&package, record(index), sizeof package);
        return package;
    }

    uint64_t lost = 0;

private:
    VexoSessionLayout layout_;
    std::vector<uint8_t> bytes_;
};

// How packages and set-points go.
struct Path {
    const char* name;
    bool raw;
};
inline void PrintTo(const Path& path, std::ostream* out) {
    *out << path.name;
}
inline constexpr Path kPaths[] = {{"Tcp", false}, {"Raw", true}};

class SessionFixture : public ::testing::Test {
protected:
    // Makes a cable between host0 and robot0 in a namespace of its own for the raw path, which
    // controller and session take then.
    void prepare(const Path& path) {
        if (!path.raw) {
            return;
        }
        if (const std::string reason = enter_network_namespace(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        make_veth_pair("host0", "02:00:00:00:00:0A", "robot0", "02:00:00:00:00:0B");
        raw_ = true;
    }
    void open(VexoSessionOptions options = sized<VexoSessionOptions>()) {
        options.interface = raw_ ? "host0" : nullptr;
        ASSERT_OK(vexo_session_open(address_.c_str(), &options, &session_));
    }
    void start_controller(sim::Options options = {}) {
        options.address = address_;
        options.interface = raw_ ? "robot0" : "";
        controller_.emplace(std::move(options));
    }
    VexoSessionStream* stream(std::vector<const char*> names,
                              const VexoSessionStreamOptions* options = nullptr) {
        VexoSessionStream* opened = nullptr;
        EXPECT_OK(vexo_session_stream_open(
            session_, names.data(), static_cast<uint32_t>(names.size()), options, kSoon, &opened));
        return opened;
    }
    VexoSessionStatus status() {
        auto now = sized<VexoSessionStatus>();
        EXPECT_OK(vexo_session_status(session_, &now));
        return now;
    }
    VexoSessionStatistics statistics() {
        auto now = sized<VexoSessionStatistics>();
        EXPECT_OK(vexo_session_statistics(session_, &now));
        return now;
    }
    // Waits for an event of this kind.
    VexoSessionEvent event(uint32_t kind) {
        auto next = sized<VexoSessionEvent>();
        do {
            EXPECT_OK(vexo_session_next_event(session_, &position_, &next, kSoon));
        } while (next.kind != kind && !HasFailure());
        return next;
    }
    void TearDown() override {
        if (session_ != nullptr) {
            vexo_session_close(session_);
        }
    }

    const std::string address_ = own_loopback();  // a child of the test has the same
    bool raw_ = false;
    std::optional<sim::Simulator> controller_;
    VexoSession* session_ = nullptr;
    uint64_t position_ = 0;
};

}  // namespace test

#endif
