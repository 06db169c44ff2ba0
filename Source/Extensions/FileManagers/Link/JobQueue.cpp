#include "Extensions/FileManagers/Link/JobQueue.h"

#include <algorithm>
#include <utility>

namespace corvid::link {

JobQueue::Added JobQueue::add(Connection connection, MenuRequest request) {
    std::size_t bytes = sizeof(Job) + request.folder.size();
    for (const SelectedItem& item : request.selection) {
        bytes += sizeof item + item.path.size();
    }
    return add({connection, std::move(request), bytes});
}

JobQueue::Added JobQueue::add(Connection connection, const Click& click) {
    return add({connection, click, sizeof(Job)});
}

JobQueue::Added JobQueue::add(Job job) {
    Share& share = shares_[job.connection];
    if (share.jobs >= kMaxJobs) {
        return Added::tooMany;
    }
    if (job.bytes > kMaxBytes - share.bytes) {
        return Added::tooLarge;
    }
    ++share.jobs;
    share.bytes += job.bytes;
    jobs_.push_back(std::move(job));
    return Added::added;
}

std::optional<std::uint32_t> JobQueue::dropWaiting(Connection connection, std::uint32_t context) {
    for (auto job = jobs_.begin(); job != jobs_.end(); ++job) {
        const auto* const request = std::get_if<MenuRequest>(&job->what);
        if (request != nullptr && job->connection == connection && request->context == context) {
            const std::uint32_t number = request->request;
            finish(*job);
            jobs_.erase(job);
            return number;
        }
    }
    return std::nullopt;
}

std::optional<JobQueue::Job> JobQueue::take() {
    const auto next = std::ranges::find_if(
        jobs_, [this](const Job& job) { return !shares_[job.connection].isHeldBack; });
    if (next == jobs_.end()) {
        return std::nullopt;
    }
    Job job = std::move(*next);
    jobs_.erase(next);
    return job;
}

void JobQueue::finish(const Job& job) {
    if (const auto share = shares_.find(job.connection); share != shares_.end()) {
        --share->second.jobs;
        share->second.bytes -= job.bytes;
    }
}

bool JobQueue::holdBack(Connection connection, bool isHeldBack) {
    return std::exchange(shares_[connection].isHeldBack, isHeldBack) != isHeldBack;
}

void JobQueue::forget(Connection connection) {
    std::erase_if(jobs_, [=](const Job& job) { return job.connection == connection; });
    shares_.erase(connection);
}

} // namespace corvid::link
