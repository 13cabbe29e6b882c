// A cut at every byte of what a controller sends.
#include <thread>

#include "tests/session/stream_reader.h"

namespace test {
namespace {

// A small catalogue makes a set-up of few bytes.
sim::Catalogue small() {
    sim::Catalogue catalogue;
    catalogue.outputs = {{"package_counter", 3, sim::Type::u32}, {"pressure", 4, sim::Type::u16}};
    catalogue.inputs = {{"heartbeat", 1, sim::Type::u8}};
    catalogue.methods = {{"servoJ", 9}};
    return catalogue;
}

// A controller and its session, which is cut at one byte after the other.
class CutAtBytes {
public:
    CutAtBytes(int number, sim::Break how) : how_(how), controller_(options(number)) {
        const VexoSessionOptions impatience = impatient();
        EXPECT_OK(vexo_session_open(own_loopback(number).c_str(), &impatience, &session_));
        const char* names[] = {"package_counter", "pressure"};
        EXPECT_OK(vexo_session_stream_open(session_, names, 2, nullptr, kSoon, &stream_));
        const char* inputs[] = {"heartbeat"};
        EXPECT_OK(vexo_session_inputs_open(session_, inputs, 1, kSoon, &inputs_));
        reader_.emplace(stream_);
    }
    ~CutAtBytes() { EXPECT_OK(vexo_session_close(session_)); }

    // Of the set-up: counted over all of its replies. Tells whether there was such a byte.
    bool cut_set_up(size_t byte) {
        sim::Fault fault;
        fault.link = how_;
        fault.link_total = byte;
        const uint64_t attempts = statistics().attempts;
        controller_.inject(fault);
        controller_.disconnect(sim::Port::io, how_);
        come_back();
        controller_.clear_faults();
        return statistics().attempts > attempts + 1;
    }
    // Of a package.
    void cut_package(size_t byte) {
        sim::Fault fault;
        fault.target = sim::Target::package;
        fault.link = how_;
        fault.link_after = byte;
        controller_.inject(fault);
        come_back();
    }

private:
    static sim::Options options(int number) {
        sim::Options options;
        options.address = own_loopback(number);
        options.catalogue = small();
        return options;
    }
    VexoSessionStatistics statistics() {
        auto now = sized<VexoSessionStatistics>();
        EXPECT_OK(vexo_session_statistics(session_, &now));
        return now;
    }
    void come_back() {
        auto next = sized<VexoSessionEvent>();
        do {
            ASSERT_OK(vexo_session_next_event(session_, &position_, &next, kSoon));
        } while (next.kind != VEXO_SESSION_EVENT_BACK);
        reader_->read_up_to(++connections_);
    }

    sim::Break how_;
    sim::Simulator controller_;
    VexoSession* session_ = nullptr;
    VexoSessionStream* stream_ = nullptr;
    VexoSessionInputs* inputs_ = nullptr;
    std::optional<StreamReader> reader_;
    uint64_t position_ = 0;
    uint32_t connections_ = 1;
};

// Eight controllers in one process, each cut at every eighth byte.
TEST(CutsAtEveryByte, AreOvercome) {
    constexpr size_t kPackage = 4 + 4 + 2;
    constexpr int kControllers = 8;
    std::array<size_t, kControllers> last{};
    std::vector<std::thread> threads;
    for (int i = 0; i < kControllers; ++i) {
        threads.emplace_back([i, &last] {
            CutAtBytes cuts(i + 1, i % 2 == 0 ? sim::Break::reset : sim::Break::close);
            size_t& byte = last[static_cast<size_t>(i)];
            for (byte = static_cast<size_t>(i);
                 cuts.cut_set_up(byte) && !::testing::Test::HasFailure(); byte += kControllers) {
            }
            for (size_t each = 0; each < kPackage && !::testing::Test::HasFailure(); ++each) {
                cuts.cut_package(each);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(*std::ranges::min_element(last), 100U) << "bytes of the set-up that were seen";
}

}  // namespace
}  // namespace test
