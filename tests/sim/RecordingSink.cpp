#include "RecordingSink.h"

#include <chrono>

#include "SimClient.h"

namespace simtest {

HRESULT STDMETHODCALLTYPE RecordingSink::QueryInterface(REFIID iid, void** object)
{
    if (iid == IID_IUnknown || iid == IID_IWbemObjectSink) {
        *object = static_cast<IWbemObjectSink*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT STDMETHODCALLTYPE RecordingSink::Indicate(LONG count, IWbemClassObject** objects)
{
    ++running_;
    SeenIndicate seen{std::this_thread::get_id(), count, {}};
    for (LONG i = 0; i < count; ++i) {
        SeenObject object;
        Var value;
        object.classRead = objects[i]->Get(L"__Class", 0, &value, nullptr, nullptr);
        if (SUCCEEDED(object.classRead) && value->vt == VT_BSTR) {
            object.className = bstrText(value->bstrVal);
        }
        Var name;
        object.nameRead = objects[i]->Get(L"InstanceName", 0, &name, nullptr, nullptr);
        if (SUCCEEDED(object.nameRead) && name->vt == VT_BSTR) {
            object.instanceName = bstrText(name->bstrVal);
        }
        Var seq;
        if (SUCCEEDED(objects[i]->Get(L"Seq", 0, &seq, nullptr, nullptr)) && seq->vt == VT_I4) {
            object.seq = seq->lVal;
        }
        seen.objects.push_back(std::move(object));
    }
    std::function<void()> action;
    {
        std::unique_lock<std::mutex> guard(lock_);
        indicates_.push_back(std::move(seen));
        action = action_;
        ++waiting_;
        opened_.notify_all();
        opened_.wait(guard, [this] { return !blocked_; });
        --waiting_;
    }
    if (action) {
        action();
    }
    --running_;
    return answer;
}

HRESULT STDMETHODCALLTYPE RecordingSink::SetStatus(LONG flags, HRESULT result, BSTR param,
                                                   IWbemClassObject* object)
{
    const std::lock_guard<std::mutex> guard(lock_);
    statuses_.push_back({flags, result, param == nullptr, object == nullptr, running_.load(),
                         references.load(), std::this_thread::get_id()});
    return S_OK;
}

void RecordingSink::block()
{
    const std::lock_guard<std::mutex> guard(lock_);
    blocked_ = true;
}

void RecordingSink::open()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        blocked_ = false;
    }
    opened_.notify_all();
}

void RecordingSink::onIndicate(std::function<void()> action)
{
    const std::lock_guard<std::mutex> guard(lock_);
    action_ = std::move(action);
}

bool RecordingSink::waitForBlocked(int count)
{
    std::unique_lock<std::mutex> guard(lock_);
    return opened_.wait_for(guard, std::chrono::seconds(10), [&] { return blocked_ && waiting_ >= count; });
}

std::vector<SeenIndicate> RecordingSink::indicates() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return indicates_;
}

std::vector<SeenStatus> RecordingSink::statuses() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return statuses_;
}

}  // namespace simtest
