// A buffer of set-points that the I/O thread sends at a steady pace.
#ifndef SESSION_FEED_H
#define SESSION_FEED_H

#include <vector>

#include "session/robot.h"
#include "session/signal.h"

namespace vexo::session {

class Feed final : public Object {
public:
    struct Options {
        uint32_t joints = 0;
        Nanoseconds period = kMillisecond;
        uint32_t capacity = 4096;
        double value = 0;
        uint32_t flag = 0;
    };
    Feed(Ref<Robot> robot, Ref<Live> live, const Options& options);

    const Ref<Robot> robot;
    const Options options;

    // ---- The I/O thread.
    void run(Nanoseconds now);
    Nanoseconds next_time();
    // The session was cut: what was not sent never will be.
    void cut();

    // ---- Any thread.
    int32_t push(const double* points, uint32_t count, Nanoseconds deadline, uint32_t& taken);
    int32_t drain(Nanoseconds deadline);
    VexoSessionFeedStatus status();
    void close();

private:
    uint64_t waiting() const { return pushed_.load() - taken_.load(); }
    bool over() const { return cut_.load() || closed_.load(); }
    int32_t why_over() const;
    void send(const double* joints);
    void collect();

    const Ref<Live> live_;
    std::vector<double> points_;
    Mutex pushing_;
    std::atomic<uint64_t> pushed_{0};
    std::atomic<uint64_t> taken_{0};
    Signal taken_one_;
    std::atomic<bool> cut_{false};
    std::atomic<bool> closed_{false};
    Nanoseconds due_ = 0;  // of the next one; 0: none was sent yet. The I/O thread's
    OneWriter<uint64_t> sent_;
    OneWriter<uint64_t> underruns_;
    Counter acknowledged_;
    Counter refused_;
    std::atomic<int32_t> last_status_{0};
};

}  // namespace vexo::session

#endif
