// A descriptor that becomes readable, for readers that wait with poll().
#ifndef SESSION_ALARM_H
#define SESSION_ALARM_H

#include <atomic>

#include "session/object.h"

namespace vexo::session {

class Alarm final : public Object {
public:
    Alarm();

    // -1: the system has none.
    int descriptor() const { return descriptor_; }
    void ring();
    void clear();

private:
    friend class AlarmList;
    ~Alarm() override;

    int descriptor_;
    std::atomic<bool> armed_{false};
    Alarm* next_ = nullptr;  // in the list
};

// Alarms that the writer sets off with its next record. Any thread adds; nobody waits.
class AlarmList {
public:
    AlarmList() = default;
    ~AlarmList() { set_off(); }
    AlarmList(const AlarmList&) = delete;
    AlarmList& operator=(const AlarmList&) = delete;

    void add(const Ref<Alarm>& alarm);
    void set_off();

private:
    std::atomic<Alarm*> first_{nullptr};
};

}  // namespace vexo::session

#endif
