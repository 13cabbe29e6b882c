// Without this the calls of a control cycle could cost more system calls, or any allocation.
#include <algorithm>
#include <functional>
#include <span>

#include "tests/end_to_end/application.h"
#include "tests/support/allocations.h"
#include "tests/support/system_calls.h"

using namespace test;

namespace {

constexpr size_t kRepetitions = 10;
constexpr double kJoints[6] = {0.1, -1.1, 1.5, -0.3, 1.4, 0.2};

// A cyclic call, and its system calls over TCP, and in frames with unacknowledged set-points.
struct CyclicCall {
    const char* name;
    std::function<int32_t(const Application&)> call;
    const char* tcp;
    const char* raw;
};

uint8_t package[VEXO_MAX_OUTPUT_PACKAGE];

const CyclicCall kCalls[] = {
    {"servo",
     [](const Application& app) {
         return cvexo_servoj(app.handle, app.servo_row, 0.001, 1, kJoints, 6, kJoints);
     },
     "wait send wait receive ", "send "},
    {"write",
     [](const Application& app) {
         return vexo_input_data_send(app.handle, app.input_recipe, kJoints);
     },
     "wait send ", "send "},
    {"read",
     [](const Application& app) {
         return vexo_ouput_data_receive(app.handle, 0, package, sizeof package);
     },
     "", ""},
};

void prepare(Application& app, const Path& path) {
    ASSERT_NO_FATAL_FAILURE(
        app.stream("package_counter,actual_joint_positions", path.mode, path.nack));
    ASSERT_NO_FATAL_FAILURE(app.set_up_input("external_joint_torques"));
    ASSERT_TRUE(wait_until([&] { return app.latest().length() > 0; }));
    for (const CyclicCall& cyclic : kCalls) {
        ASSERT_EQ(cyclic.call(app), 0) << cyclic.name;
    }
}

// On a busy machine an acknowledgement can be late, which is then printed.
constexpr char kLateServo[] = "wait send wait 1 ";

void expect_mostly(const std::string& system_calls, std::span<const std::string> sections) {
    EXPECT_GT(std::ranges::count(sections, system_calls), std::ssize(sections) / 2);
    for (const std::string& section : sections) {
        if (section != kLateServo) {
            EXPECT_EQ(section, system_calls);
        }
    }
}

// The application is a child process, whose allocations are not the controller's.
class CyclicCost : public ::testing::TestWithParam<Path> {
protected:
    void SetUp() override {
        controller_ = on_loopback();
        if (GetParam().raw()) {
            if (const std::string reason = enter_own_network(); !reason.empty()) {
                GTEST_SKIP() << reason;
            }
            controller_.interface = "robot0";
        }
    }

    sim::Options controller_;
};
class CyclicAllocations : public CyclicCost {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Timing, CyclicCost, ::testing::Values(kVersion1, kVersion2, kRawNack),
                         path_name);

TEST_P(CyclicCost, IsASetNumberOfSystemCalls) {
    if (!kCanCountSystemCalls) {
        GTEST_SKIP() << "the sanitizer makes system calls of its own";
    }
    ChildProcess application([&] {
        Application app(controller_.address);
        ASSERT_NO_FATAL_FAILURE(prepare(app, GetParam()));
        for (const CyclicCall& cyclic : kCalls) {
            for (size_t i = 0; i < kRepetitions; ++i) {
                const SystemCallSection section;
                cyclic.call(app);
            }
        }
    });
    const sim::Simulator controller(controller_);
    std::vector<std::string> sections;
    const bool ended_well = application.trace(sections);
    if (application.refused()) {
        GTEST_SKIP() << "the system does not let a process trace its child";
    }
    EXPECT_TRUE(ended_well);
    ASSERT_EQ(sections.size(), std::size(kCalls) * kRepetitions);
    for (size_t i = 0; i < std::size(kCalls); ++i) {
        SCOPED_TRACE(kCalls[i].name);
        expect_mostly(GetParam().raw() ? kCalls[i].raw : kCalls[i].tcp,
                      {sections.data() + i * kRepetitions, kRepetitions});
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they allocate, too
TEST_P(CyclicAllocations, AreNoneOfAnyThread) {
    ChildProcess application([&] {
        Application app(controller_.address);
        ASSERT_NO_FATAL_FAILURE(prepare(app, GetParam()));
        ASSERT_GT(allocations(), 0U);
        for (const CyclicCall& cyclic : kCalls) {
            const uint64_t before = allocations();
            for (int i = 0; i < 1000; ++i) {
                cyclic.call(app);
            }
            EXPECT_EQ(allocations(), before) << cyclic.name;
        }
    });
    const sim::Simulator controller(controller_);
    EXPECT_TRUE(application.run());
}

INSTANTIATE_TEST_SUITE_P(Timing, CyclicAllocations, ::testing::Values(kVersion1, kVersion2, kRaw),
                         path_name);
#endif
