// Input variables that are sent together. They outlive cuts; their values do not.
#ifndef SESSION_INPUTS_H
#define SESSION_INPUTS_H

#include "session/connection.h"
#include "session/stream.h"

namespace vexo::session {

class Inputs final : public Object {
public:
    Inputs(Ref<Robot> robot, std::vector<std::string> names, Layout layout);

    const Ref<Robot> robot;
    const std::vector<std::string> names;
    const Layout layout;

    // Guarded by the session's monitor.
    Progress progress = Progress::wanted;
    VexoSessionError error{};

    // By the I/O thread: the controller knows them over this connection, or nothing does.
    void stand(Ref<Connection> connection, uint8_t recipe);
    void cut(bool forget_values);
    // Their variables are not what they were.
    void fail();
    bool stands_on(const Connection* connection);

    // Any thread. Return results, and tell failures.
    template <typename T>
    int32_t set(const char* name, const T* values, uint32_t count);
    int32_t set_text(const char* name, const char* text);
    int32_t send();
    int32_t write(std::span<const uint8_t> values);

private:
    const VexoSessionVariable* field(const char* name);
    uint8_t* place(const VexoSessionVariable& field);
    int32_t may_send() const;
    int32_t transmit(std::span<const uint8_t> values);

    Mutex mutex_;
    // Guarded by the mutex.
    Ref<Connection> connection_;  // null: they are set up with none
    uint8_t recipe_ = 0;
    bool failed_ = false;
    std::vector<uint8_t> values_;
    std::vector<bool> set_;  // since the last cut
    size_t not_set_;         // how many are not
    std::vector<uint8_t> frame_;
};

}  // namespace vexo::session

#endif
