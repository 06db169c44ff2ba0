#pragma once

#include "App/Reporting/ThreadWithoutSignals.h"

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

namespace corvid {

/// The result of `call`, which may hang on a disk; nothing when it takes longer than `limit`. Then
/// it goes on by itself, so it owns what it needs, or that lives as long as the process. It runs on
/// a thread of its own, or on this one, without the limit, when the system has no thread left.
template <class Result>
std::optional<Result> callWithin(std::chrono::milliseconds limit, std::function<Result()> call) {
    const auto task = std::make_shared<std::packaged_task<Result()>>(std::move(call));
    std::future<Result> result = task->get_future();
    try {
        threadWithoutSignals([task] { (*task)(); }).detach();
    } catch (const std::system_error&) {
        (*task)();
    }
    if (result.wait_for(limit) == std::future_status::timeout) {
        return std::nullopt;
    }
    return result.get();
}

} // namespace corvid
