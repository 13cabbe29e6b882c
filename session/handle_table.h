// Handles: numbers in the guise of pointers, each for an object, with a count of the calls that are
// inside. A number is never given twice, so that a closed handle is told from a new one.
#ifndef SESSION_HANDLE_TABLE_H
#define SESSION_HANDLE_TABLE_H

#include "session/object.h"

namespace vexo::session {

enum class HandleKind : uint8_t { session = 1, stream, cursor, inputs, feed };

using Handle = uintptr_t;

// 0 when there is none left. The table is one of the owners of the object from then on.
Handle add_handle(HandleKind kind, Object& object);

// Closes a handle for further calls. True for the one call that does it. The object goes when the
// last call has left.
bool shut_handle(Handle handle);

// How many calls are inside; 0 when the handle is gone.
uint32_t calls_inside(Handle handle);

// All handles count as closed from now on; what they stand for is abandoned. For a child of fork().
void abandon_handles();

// A call on a handle: the object stays as long as this does.
class Call {
public:
    Call(Handle handle, HandleKind kind);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    // Null when the handle is closed, of another kind, or no handle at all.
    Object* object() const { return object_; }

private:
    Handle handle_;
    Object* object_ = nullptr;
};

}  // namespace vexo::session

#endif
