#pragma once

#include "Core/Base/Bytes.h"

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace corvid::hostkit {

/// What waits for one extension: of several badges of one item only the newest. PushSenders sends
/// it. Not thread-safe.
class PushLane {
public:
    /// A badge on its way: the item, and the message about it. Lanes share it.
    struct Push {
        std::string path;
        Bytes payload;
    };
    using PushRef = std::shared_ptr<const Push>;

    std::size_t size() const { return waiting_.size(); }

    /// Queues `push`, in the place of an older one of the same item. Throws std::bad_alloc, here
    /// and below, and is unchanged then.
    void add(PushRef push);
    /// The oldest; null when none waits.
    PushRef takeFirst();
    /// Puts what takeFirst() gave back to the front, unless a newer one of its item waits.
    void putBack(PushRef push);
    void clear();

private:
    // Keys are the paths in the pushes.
    std::list<PushRef> waiting_;
    std::unordered_map<std::string_view, std::list<PushRef>::iterator> byPath_;
};

} // namespace corvid::hostkit
