#include <FeXOPlatform/PerOriginAdmission.hpp>
#include <FeXOPlatform/URLSessionTransfer.hpp>

#include <algorithm>

namespace fexo {

bool PerOriginAdmission::enter(URLSessionTransfer* transfer)
{
    auto& admitted = admitted_[transfer->origin];
    if (admitted >= slotsPerOrigin_) {
        waiting_[transfer->origin].push_back(transfer);
        return false;
    }
    ++admitted;
    return true;
}

URLSessionTransfer* PerOriginAdmission::release(URLSessionTransfer* transfer)
{
    auto queue = waiting_.find(transfer->origin);
    if (queue == waiting_.end()) {
        auto slots = admitted_.find(transfer->origin);
        if (slots != admitted_.end() && --slots->second == 0) admitted_.erase(slots);
        return nullptr;
    }
    // The slot passes straight to the next in line.
    URLSessionTransfer* next = queue->second.front();
    queue->second.pop_front();
    if (queue->second.empty()) waiting_.erase(queue);
    return next;
}

void PerOriginAdmission::withdraw(URLSessionTransfer* transfer)
{
    auto queue = waiting_.find(transfer->origin);
    if (queue == waiting_.end()) return;
    std::erase(queue->second, transfer);
    if (queue->second.empty()) waiting_.erase(queue);
}

} // namespace fexo
