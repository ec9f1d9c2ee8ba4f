/// @file
/// Reference counting for the pipeline's interfaces; hold them by `boost::intrusive_ptr`.
#pragma once

#include "host/Export.h"

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <atomic>
#include <utility>

namespace Quorva {

/// Base of every shared interface. Interfaces derive from it virtually, so that an object with several
/// interfaces has one count.
class QUORVA_HOST_API IRefCountable {
public:
    IRefCountable(const IRefCountable&) = delete;
    IRefCountable& operator=(const IRefCountable&) = delete;

    /// One more holds the object.
    virtual void AddRef() const noexcept = 0;
    /// Deletes the object when its last reference goes.
    virtual void Release() const noexcept = 0;

protected:
    IRefCountable() = default;
    virtual ~IRefCountable();
};

/// Found by `boost::intrusive_ptr`; null is not accepted.
QUORVA_HOST_API void intrusive_ptr_add_ref(const IRefCountable* object) noexcept;
QUORVA_HOST_API void intrusive_ptr_release(const IRefCountable* object) noexcept;

/// A counter that starts at 0. Safe on any thread: the release that returns 0 sees everything that other
/// threads did before theirs.
class QUORVA_HOST_API RefCountImpl {
public:
    RefCountImpl() = default;
    RefCountImpl(const RefCountImpl&) = delete;
    RefCountImpl& operator=(const RefCountImpl&) = delete;

    /// @return the count after the change.
    unsigned int AddRefImpl() const noexcept;
    /// @return the count after the change. A count of 0 stays 0.
    unsigned int ReleaseImpl() const noexcept;

private:
    mutable std::atomic<unsigned int> count{0};
};

/// An `Interface` whose objects live as long as someone holds them. Make them with MakeRefCounted().
template <class Interface>
class RefCounted : public Interface {
public:
    void AddRef() const noexcept final { counter.AddRefImpl(); }
    void Release() const noexcept final
    {
        if (counter.ReleaseImpl() == 0)
            delete this;
    }

protected:
    RefCounted() = default;
    ~RefCounted() override = default;

private:
    RefCountImpl counter;
};

/// A new object, held by the returned pointer alone.
template <class T, class... Args>
boost::intrusive_ptr<T> MakeRefCounted(Args&&... args)
{
    return boost::intrusive_ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Quorva
