#pragma once

#include "Extensions/FileManagers/Link/FinderModel.h"
#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <variant>

namespace corvid::link {

/// Menu requests and clicks of all front ends that wait for the extension, oldest first, and how
/// much of them each front end has waiting or in work. The caller guards it.
class JobQueue {
public:
    using Connection = FinderModel::Connection;

    /// What one front end may have waiting or in work: so many, with so many bytes in memory. The
    /// bytes are three times those of the largest selection that a frame of ordinary paths holds.
    static constexpr std::size_t kMaxJobs = 64;
    static constexpr std::size_t kMaxBytes = std::size_t{64} * 1024 * 1024;

    struct Job {
        Connection connection = 0;
        std::variant<MenuRequest, Click> what;
        std::size_t bytes = 0;
    };

    enum class Added { added, tooMany, tooLarge };
    Added add(Connection connection, MenuRequest request);
    Added add(Connection connection, const Click& click);

    /// Takes out the menu request of that context that waits, and returns its number; nothing when
    /// there is none.
    std::optional<std::uint32_t> dropWaiting(Connection connection, std::uint32_t context);

    /// The oldest job of a front end that is not held back; nothing when there is none. It is in
    /// work until finish().
    std::optional<Job> take();
    void finish(const Job& job);

    /// While a front end is held back, take() passes its jobs over. Whether that is a change.
    bool holdBack(Connection connection, bool isHeldBack);
    /// The connection is gone, and with it what waited. Jobs in work may still be finished.
    void forget(Connection connection);

private:
    struct Share {
        std::size_t jobs = 0;
        std::size_t bytes = 0;
        bool isHeldBack = false;
    };
    Added add(Job job);

    std::deque<Job> jobs_;
    std::map<Connection, Share> shares_;
};

} // namespace corvid::link
