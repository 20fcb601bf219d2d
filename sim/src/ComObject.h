// Internal: the reference count every COM object of the service shares, and
// the tracker that sums live objects and references for the leak checks.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform.h"
#include "sim/Observation.h"

namespace sim {

class ServiceCore;
class ComObject;

enum class ObjectKind { factory, locator, services, classObject };

class Tracker {
public:
    void created(const ComObject* object);
    void addedReference(ObjectKind kind);
    void releasedReference(ObjectKind kind);
    void destroyed(const ComObject* object);
    ReferenceCounts counts() const;
    std::vector<std::string> describeLive() const;

private:
    mutable std::mutex lock_;
    std::set<const ComObject*> live_;
    ReferenceCounts counts_;
};

// Starts with one reference, for whoever created it; ends itself on the last Release.
class ComObject {
public:
    ComObject(std::shared_ptr<ServiceCore> core, ObjectKind kind, std::string description);
    virtual ~ComObject() = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    ObjectKind kind() const { return kind_; }
    const std::string& description() const { return description_; }
    ULONG references() const { return references_.load(); }

protected:
    ULONG addReference();
    ULONG releaseReference();
    ServiceCore& core() const { return *core_; }
    const std::shared_ptr<ServiceCore>& sharedCore() const { return core_; }

private:
    std::shared_ptr<ServiceCore> core_;
    ObjectKind kind_;
    std::string description_;
    std::atomic<ULONG> references_{1};
};

}  // namespace sim
