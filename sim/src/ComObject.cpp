#include "ComObject.h"

#include "ServiceCore.h"

namespace sim {

namespace {

bool isFactory(ObjectKind kind)
{
    return kind == ObjectKind::factory;
}

}  // namespace

void Tracker::created(const ComObject* object)
{
    const std::lock_guard<std::mutex> guard(lock_);
    live_.insert(object);
    (isFactory(object->kind()) ? counts_.liveFactories : counts_.liveObjects) += 1;
    (isFactory(object->kind()) ? counts_.factoryReferences : counts_.references) += 1;
}

void Tracker::addedReference(ObjectKind kind)
{
    const std::lock_guard<std::mutex> guard(lock_);
    (isFactory(kind) ? counts_.factoryReferences : counts_.references) += 1;
}

void Tracker::releasedReference(ObjectKind kind)
{
    const std::lock_guard<std::mutex> guard(lock_);
    (isFactory(kind) ? counts_.factoryReferences : counts_.references) -= 1;
}

void Tracker::destroyed(const ComObject* object)
{
    const std::lock_guard<std::mutex> guard(lock_);
    live_.erase(object);
    (isFactory(object->kind()) ? counts_.liveFactories : counts_.liveObjects) -= 1;
}

ReferenceCounts Tracker::counts() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return counts_;
}

std::vector<std::string> Tracker::describeLive() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    std::vector<std::string> lines;
    for (const ComObject* object : live_) {
        lines.push_back(object->description() + " refs=" + std::to_string(object->references()));
    }
    return lines;
}

ComObject::ComObject(std::shared_ptr<ServiceCore> core, ObjectKind kind, std::string description)
    : core_(std::move(core)), kind_(kind), description_(std::move(description))
{
    core_->tracker().created(this);
}

ULONG ComObject::addReference()
{
    core_->tracker().addedReference(kind_);
    return ++references_;
}

ULONG ComObject::releaseReference()
{
    // The tracker learns of the release before the count drops, so it never
    // reads the count of an object that is being destroyed.
    core_->tracker().releasedReference(kind_);
    const ULONG left = --references_;
    if (left == 0) {
        core_->tracker().destroyed(this);
        delete this;
    }
    return left;
}

}  // namespace sim
