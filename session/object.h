// Shared ownership by a count in the object itself.
#ifndef SESSION_OBJECT_H
#define SESSION_OBJECT_H

#include <atomic>
#include <cstdint>
#include <utility>

namespace vexo::session {

// Made with one owner: hand it to a Ref at once.
class Object {
public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    void keep() { owners_.fetch_add(1, std::memory_order_relaxed); }
    void let_go() {
        if (owners_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

protected:
    virtual ~Object() = default;

private:
    std::atomic<uint32_t> owners_{1};
};

template <typename T>
class Ref {
public:
    Ref() = default;
    Ref(const Ref& other) : object_(other.object_) {
        if (object_ != nullptr) {
            object_->keep();
        }
    }
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    ~Ref() {
        if (object_ != nullptr) {
            object_->let_go();
        }
    }
    Ref& operator=(Ref other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    // Takes over the count that the object was made with; one more owner of an object in use.
    static Ref adopt(T* object) {
        Ref ref;
        ref.object_ = object;
        return ref;
    }
    static Ref share(T* object) {
        object->keep();
        return adopt(object);
    }

    explicit operator bool() const { return object_ != nullptr; }
    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    bool operator==(const Ref& other) const = default;

private:
    T* object_ = nullptr;
};

template <typename T, typename... Arguments>
Ref<T> make(Arguments&&... arguments) {
    return Ref<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace vexo::session

#endif
