// Without this a frame that goes wrong could harm another.
#include <semaphore.h>

#include "tests/end_to_end/application.h"
#include "tests/raw_path/raw_path.h"

using namespace test;
using ::testing::HasSubstr;

namespace {

constexpr uint32_t kHit = 4;  // the number of the package that the mishap befalls

// The latest package, as far as a mishap changes it.
struct Shown {
    size_t length;
    uint32_t counter;
    bool operator==(const Shown&) const = default;
};
constexpr Shown kBefore{8, kHit - 1};
constexpr Shown kWhole{8, kHit};

std::ostream& operator<<(std::ostream& out, const Shown& shown) {
    return out << "package " << shown.counter << " of " << shown.length << " bytes";
}

// What becomes of one package, and of one reply with status 5.
struct FrameMishap {
    const char* name;
    const char* fault;
    Shown shown;     // when no other package follows
    int tokens;      // replies that set-points need not wait for; one until now
    int32_t status;  // that the next set-point returns
    const char* logged = nullptr;
    int tags = 0;  // 802.1Q tags of a frame that the test sends instead
};

void PrintTo(const FrameMishap& mishap, std::ostream* out) {
    *out << mishap.fault;
}

constexpr char kBadHeader[] = " Error: raw_socket_recv: -102\n";
constexpr char kBadChecksum[] = " Error: raw_socket_recv: -103\n";

const FrameMishap kMishaps[] = {
    {"Lost", "lost", kBefore, 0, 0},
    {"Doubled", "doubled", kWhole, 2, 5},
    {"Altered", "altered", kBefore, 0, 0, kBadChecksum},
    {"Foreign", "source=02:00:00:00:00:09", kBefore, 0, 0},
    {"Tagged", "tagged", kWhole, 1, 5},
    {"TaggedTwice", "lost", kBefore, 0, 0, nullptr, 2},
    {"LongerThanReceived", "payload=2000", kBefore, 0, 0, kBadHeader},
    {"ShorterThanReceived", "payload=3", kBefore, 0, 0, kBadChecksum},
    {"LongMessage", "length=4000", {4000, kHit}, 1, 5},
    {"ShortMessage", "length=3", {3, 0}, 1, 0},
};

class FrameFault : public RawPath, public ::testing::WithParamInterface<FrameMishap> {
protected:
    void SetUp() override {
        RawPath::SetUp();
        if (!IsSkipped()) {
            station_ = std::make_unique<Station>(1, kRaw);
            log_init();
        }
    }

    void inject(const std::string& which) {
        station_->controller.inject(sim::parse_fault(which + "," + GetParam().fault));
    }

    // In place of the frame that was lost, where the simulator has no word for the mishap.
    void send_by_hand(uint8_t code, const Bytes& payload) {
        const FrameMishap& mishap = GetParam();
        if (mishap.tags == 0) {
            return;
        }
        Bytes frame = controller_frame(code, payload);
        for (int i = 0; i < mishap.tags; ++i) {
            const Bytes tag = bytes("81 00 00 05");
            frame.insert(frame.begin() + 12, tag.begin(), tag.end());
        }
        robot_->send(frame);
    }

    Shown shown() const {
        const Package package = station_->app.latest();
        return {package.length(), package.value<uint32_t>(0)};
    }

    int tokens() const {
        int count = -1;
        sem_getvalue(reinterpret_cast<sem_t*>(station_->app.dataspace() + kReplyTokensOffset),
                     &count);
        return count;
    }

    // What the response buffer holds behind a reply of 7 bytes that claims to have so many.
    Bytes behind_reply(size_t claimed) const {
        const uint8_t* const reply = station_->app.dataspace() + kResponseOffset;
        return Bytes(reply + std::max<size_t>(claimed, 7), reply + 6000);
    }

    // Has the receive thread pass over all frames sent so far, by a package sent after them.
    bool passed() const {
        const uint64_t sent = station_->controller.counters().packages_sent;
        return wait_until([&] { return station_->counter() > sent; });
    }

    void expect_logged(const char* text) const {
        const std::string log = Session::finished_log("sys_log");
        if (text == nullptr) {
            EXPECT_EQ(log.find("rror"), std::string::npos) << log;
        } else {
            EXPECT_THAT(log, HasSubstr(text));
        }
    }

    std::unique_ptr<Station> station_;
};

std::string mishap_name(const ::testing::TestParamInfo<FrameMishap>& mishap) {
    return mishap.param.name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Matrix, FrameFault, ::testing::ValuesIn(kMishaps), mishap_name);

TEST_P(FrameFault, OfAPackageHarmsNoOther) {
    const std::string skipped = "package,skip=" + std::to_string(kHit - 1);
    inject(skipped);
    station_->controller.inject(sim::parse_fault(skipped + ",lost,times=always"));
    station_->app.start();
    ASSERT_TRUE(wait_until([&] { return station_->controller.counters().packages_dropped >= 2; }));
    send_by_hand(144, package({kHit, 0, 0, 0}));
    EXPECT_EQ(station_->app.servo(0), 0);
    ASSERT_TRUE(wait_until([&] { return tokens() == 1; })) << "the reply is behind the package";
    EXPECT_EQ(shown(), GetParam().shown);
    station_->controller.clear_faults();
    EXPECT_TRUE(wait_until([&] { return shown().counter > kHit; }));
    EXPECT_EQ(shown().length, 8U);
    EXPECT_EQ(station_->app.servo(0), 0);
    expect_logged(GetParam().logged);
}

TEST_P(FrameFault, OfAReplyHarmsNoOther) {
    station_->app.start();
    EXPECT_EQ(station_->app.servo(0), 0);
    ASSERT_TRUE(wait_until([&] { return tokens() == 1; }));
    const size_t claimed = GetParam().shown.length;
    const Bytes behind = behind_reply(claimed);
    // None overtakes the call that is to return the one before.
    inject("method=servoJ,delay=100,status=5");
    station_->controller.inject(sim::parse_fault("method=servoJ,delay=100"));
    EXPECT_EQ(station_->app.servo(1), 0) << "returns the reply before";
    ASSERT_TRUE(station_->controller.wait_for_requests('m', 2));
    send_by_hand(146, {7, 0, 'm', 5, 0, 0, 0});
    ASSERT_TRUE(passed());
    EXPECT_EQ(tokens(), GetParam().tokens);
    EXPECT_EQ(behind_reply(claimed), behind);
    EXPECT_EQ(station_->app.servo(2), GetParam().status);
    ASSERT_TRUE(wait_until([&] { return tokens() == GetParam().tokens; })) << "its reply is there";
    EXPECT_EQ(station_->app.servo(3), 0);
    ASSERT_TRUE(passed());
    EXPECT_TRUE(wait_until([&] { return tokens() == GetParam().tokens; })) << "for good";
    EXPECT_TRUE(station_->controller.wait_for_set_points(3)) << "all but the refused one";
    expect_logged(GetParam().logged);
}
