#include "servo_loop.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <thread>

#include "client/vexo.h"
#include "step.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kCycle = std::chrono::milliseconds(1);
constexpr int kCyclesPerInput = 10;
constexpr double kAmplitude = 0.2;  // rad

// Counts the packages that show up while it lives.
class PackageCounter {
public:
    explicit PackageCounter(const Robot& robot) : thread_([this, &robot] { run(robot); }) {}
    ~PackageCounter() { stop(); }

    void stop() {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    uint32_t seen() const { return seen_; }
    uint32_t sent() const { return last_ - first_ + 1; }

private:
    void run(const Robot& robot) {
        Outputs outputs{};
        while (!stop_) {
            if (robot.read(outputs) && outputs.package != last_) {
                last_ = outputs.package;
                first_ = seen_ == 0 ? last_ : first_;
                ++seen_;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }

    std::atomic<bool> stop_{false};
    uint32_t seen_ = 0;
    uint32_t first_ = 1;
    uint32_t last_ = 0;
    std::thread thread_;
};

// Where the last joint is to be, `fraction` of the way through: it starts and ends at rest.
double swing(double fraction) {
    return kAmplitude * (1 - std::cos(2 * std::numbers::pi * fraction)) / 2;
}

Joints wait_for_position(const Robot& robot) {
    Outputs outputs{};
    const auto limit = Clock::now() + std::chrono::seconds(2);
    while (!robot.read(outputs) && Clock::now() < limit) {
        std::this_thread::sleep_for(kCycle);
    }
    require("see the first output package", outputs.package != 0);
    return outputs.position;
}

double distance(const Joints& a, const Joints& b) {
    double largest = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        largest = std::max(largest, std::abs(a[i] - b[i]));
    }
    return largest;
}

double settled_distance(const Robot& robot, const Joints& target) {
    Outputs outputs{};
    const auto limit = Clock::now() + std::chrono::seconds(2);
    do {
        std::this_thread::sleep_for(kCycle);
        robot.read(outputs);
    } while (distance(outputs.position, target) > 0.001 && Clock::now() < limit);
    return distance(outputs.position, target);
}

}  // namespace

ServoReport run_servo_loop(const Robot& robot, std::chrono::seconds duration) {
    const int32_t servo = robot.method("servoJ");
    const Joints home = wait_for_position(robot);
    const int cycles = static_cast<int>(duration / kCycle);
    ServoReport report;
    report.round_trips.reserve(static_cast<size_t>(cycles));
    PackageCounter packages(robot);

    auto due = Clock::now();
    for (int cycle = 0; cycle < cycles; ++cycle, due += kCycle) {
        std::this_thread::sleep_until(due);
        Joints target = home;
        target.back() += swing(static_cast<double>(cycle + 1) / cycles);
        const auto sent = Clock::now();
        const int32_t result =
            cvexo_servoj(robot.handle(), servo, 0.001, 0, nullptr, target.size(), target.data());
        const std::chrono::duration<double, std::micro> took = Clock::now() - sent;
        report.round_trips.push_back(took.count());
        if (result != 0) {
            step("send set-point " + std::to_string(cycle + 1), result);
        }
        if (cycle % kCyclesPerInput == 0 && robot.write(static_cast<uint32_t>(cycle)) != 0) {
            step("send an input package", -1);
        }
        ++(Clock::now() < due + kCycle ? report.on_time : report.late);
    }
    packages.stop();
    report.packages_seen = packages.seen();
    report.packages_sent = packages.sent();
    std::sort(report.round_trips.begin(), report.round_trips.end());
    report.largest_error = settled_distance(robot, home);
    return report;
}
