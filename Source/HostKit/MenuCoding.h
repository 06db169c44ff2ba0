#pragma once

#include "Core/Archive/Menu.h"
#include <CorvidHostKit/MenuItem.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::hostkit {

/// Why an extension could not show `items`, naming the entry and the remedy; nothing when it can.
std::optional<std::string> menuFault(const std::vector<MenuItem>& items);

/// The entries as they travel. `items` has no fault.
std::vector<std::shared_ptr<corvid::MenuItem>> menuToSend(const std::vector<MenuItem>& items);

/// The number of the action called `action`: positive, and the same in every menu and in every run
/// of every host. The extension remembers actions by their numbers for as long as it lives, so a
/// number that meant something else to an earlier host would turn one click into another.
std::int64_t actionTag(std::string_view action);

/// The name of the action that came back with a click; nothing when it came back without, or with
/// that of another entry.
std::optional<std::string> clickedAction(const corvid::MenuItem& item);

} // namespace corvid::hostkit
