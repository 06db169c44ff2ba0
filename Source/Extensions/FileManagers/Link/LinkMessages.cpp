#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <string_view>
#include <type_traits>
#include <utility>

namespace corvid::link {

namespace {

constexpr std::size_t kMaxTextSize = 64 * 1024;
constexpr std::size_t kMaxFrontEnds = 1024;

/// Appends fields; remembers that a bound was exceeded instead of failing at each.
class Writer {
public:
    explicit Writer(Bytes& out) : out_(out) {}

    bool isGood() const { return isGood_; }
    void refuse() { isGood_ = false; }

    void u8(std::uint8_t value) { out_.push_back(value); }
    void u16(std::uint16_t value) { number(value, 2); }
    void u32(std::uint32_t value) { number(value, 4); }
    void u64(std::uint64_t value) { number(value, 8); }
    void flag(bool value) { u8(value ? 1 : 0); }

    void string(std::string_view text, std::size_t bound = kMaxTextSize) {
        if (text.size() > bound) {
            refuse();
            return;
        }
        u32(static_cast<std::uint32_t>(text.size()));
        out_.insert(out_.end(), text.begin(), text.end());
    }
    void path(std::string_view text) { isPlainPath(text) ? string(text, kMaxPathSize) : refuse(); }
    void name(std::string_view text) { isPlainName(text) ? string(text, kMaxNameSize) : refuse(); }
    void count(std::size_t value, std::size_t bound) {
        if (value > bound) {
            refuse();
            value = 0;
        }
        u32(static_cast<std::uint32_t>(value));
    }

private:
    void number(std::uint64_t value, unsigned size) {
        for (unsigned i = 0; i < size; ++i) {
            out_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        }
    }

    Bytes& out_;
    bool isGood_ = true;
};

/// Takes fields off the front; past the end, or past a bound, everything is zero and the whole is
/// bad.
class Reader {
public:
    explicit Reader(ByteView bytes) : bytes_(bytes) {}

    bool isGood() const { return isGood_; }
    /// Whether there is a field that an older peer does not send.
    bool hasMore() const { return !bytes_.empty(); }
    void refuse() {
        isGood_ = false;
        bytes_ = {};
    }

    std::uint8_t u8() { return static_cast<std::uint8_t>(number(1)); }
    std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
    std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
    std::uint64_t u64() { return number(8); }
    bool flag() { return u8() != 0; }

    std::string string(std::size_t bound = kMaxTextSize) {
        const std::uint32_t size = u32();
        if (size > bound || size > bytes_.size()) {
            refuse();
            return {};
        }
        std::string text(bytes_.begin(), bytes_.begin() + size);
        bytes_ = bytes_.subspan(size);
        return text;
    }
    std::string path() {
        std::string text = string(kMaxPathSize);
        if (!isPlainPath(text)) {
            refuse();
        }
        return text;
    }
    std::string name() {
        std::string text = string(kMaxNameSize);
        if (!isPlainName(text)) {
            refuse();
        }
        return text;
    }
    /// How many elements follow, each of which takes at least `elementSize` bytes: so a count can
    /// be trusted for an allocation.
    std::size_t count(std::size_t bound, std::size_t elementSize) {
        const std::uint32_t value = u32();
        if (value > bound || value > bytes_.size() / elementSize) {
            refuse();
            return 0;
        }
        return value;
    }
    /// An enumeration whose values run from 0 to `last`.
    template <class Enum>
    Enum choice(Enum last) {
        const std::uint8_t value = u8();
        if (value > static_cast<std::uint8_t>(last)) {
            refuse();
            return Enum{};
        }
        return static_cast<Enum>(value);
    }

private:
    std::uint64_t number(std::size_t size) {
        if (size > bytes_.size()) {
            refuse();
            return 0;
        }
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value |= std::uint64_t{bytes_[i]} << (8 * i);
        }
        bytes_ = bytes_.subspan(size);
        return value;
    }

    ByteView bytes_;
    bool isGood_ = true;
};

void writeEntries(Writer& out, const std::vector<MenuEntry>& entries, std::size_t depth,
                  std::size_t& left) {
    if (depth > kMaxMenuDepth || entries.size() > left) {
        out.refuse();
        return;
    }
    left -= entries.size();
    out.u32(static_cast<std::uint32_t>(entries.size()));
    for (const MenuEntry& entry : entries) {
        std::uint8_t flags = 0;
        flags = static_cast<std::uint8_t>(flags | (entry.isEnabled ? kIsEnabled : 0));
        flags = static_cast<std::uint8_t>(flags | (entry.isHidden ? kIsHidden : 0));
        flags = static_cast<std::uint8_t>(flags | (entry.isAlternate ? kIsAlternate : 0));
        flags = static_cast<std::uint8_t>(flags | (entry.isSeparator ? kIsSeparator : 0));
        flags = static_cast<std::uint8_t>(flags | (entry.hasSubmenu ? kHasSubmenu : 0));
        out.u8(flags);
        out.u8(static_cast<std::uint8_t>(entry.state));
        out.u8(entry.indentation);
        out.string(entry.title);
        out.string(entry.toolTip);
        out.string(entry.iconName);
        if (entry.hasSubmenu) {
            writeEntries(out, entry.submenu, depth + 1, left);
        }
    }
}

std::vector<MenuEntry> readEntries(Reader& in, std::size_t depth, std::size_t& left) {
    constexpr std::size_t kSmallestEntry = 3 + 3 * 4;
    std::vector<MenuEntry> entries;
    if (depth > kMaxMenuDepth) {
        in.refuse();
        return entries;
    }
    const std::size_t count = in.count(left, kSmallestEntry);
    left -= count;
    entries.reserve(count);
    for (std::size_t i = 0; i < count && in.isGood(); ++i) {
        MenuEntry entry;
        const std::uint8_t flags = in.u8();
        entry.isEnabled = (flags & kIsEnabled) != 0;
        entry.isHidden = (flags & kIsHidden) != 0;
        entry.isAlternate = (flags & kIsAlternate) != 0;
        entry.isSeparator = (flags & kIsSeparator) != 0;
        entry.hasSubmenu = (flags & kHasSubmenu) != 0;
        entry.state = static_cast<std::int8_t>(in.u8());
        if (entry.state < -1 || entry.state > 1) {
            in.refuse();
        }
        entry.indentation = in.u8();
        entry.title = in.string();
        entry.toolTip = in.string();
        entry.iconName = in.string();
        if (entry.hasSubmenu) {
            entry.submenu = readEntries(in, depth + 1, left);
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

// One overload pair a message, in the order of FrameType.

FrameType typeOf(const Hello&) {
    return FrameType::hello;
}
void write(Writer& out, const Hello& hello) {
    out.u32(kMagic);
    out.u16(hello.oldestVersion);
    out.u16(hello.newestVersion);
    out.string(hello.program, kMaxNameSize);
}
void read(Reader& in, Hello& hello) {
    if (in.u32() != kMagic) {
        in.refuse();
    }
    hello.oldestVersion = in.u16();
    hello.newestVersion = in.u16();
    hello.program = in.string(kMaxNameSize);
    if (hello.oldestVersion > hello.newestVersion) {
        in.refuse();
    }
}

FrameType typeOf(const Welcome&) {
    return FrameType::welcome;
}
void write(Writer& out, const Welcome& welcome) {
    out.u32(kMagic);
    out.u16(welcome.version);
    out.u32(welcome.pid);
    out.string(welcome.programVersion);
}
void read(Reader& in, Welcome& welcome) {
    if (in.u32() != kMagic) {
        in.refuse();
    }
    welcome.version = in.u16();
    welcome.pid = in.u32();
    welcome.programVersion = in.string();
}

FrameType typeOf(const Refused&) {
    return FrameType::refused;
}
void write(Writer& out, const Refused& refused) {
    out.u16(refused.oldestVersion);
    out.u16(refused.newestVersion);
    out.string(refused.reason);
}
void read(Reader& in, Refused& refused) {
    refused.oldestVersion = in.u16();
    refused.newestVersion = in.u16();
    refused.reason = in.string();
}

FrameType typeOf(const Volume&) {
    return FrameType::volume;
}
void write(Writer& out, const Volume& volume) {
    out.path(volume.folder);
}
void read(Reader& in, Volume& volume) {
    volume.folder = in.path();
}

FrameType typeOf(const BadgeKinds&) {
    return FrameType::badgeKinds;
}
void write(Writer& out, const BadgeKinds& badges) {
    out.count(badges.kinds.size(), kMaxBadgeKinds);
    for (const BadgeKind& kind : badges.kinds) {
        out.string(kind.identifier);
        out.string(kind.label);
        out.string(kind.imagePath);
    }
}
void read(Reader& in, BadgeKinds& badges) {
    const std::size_t count = in.count(kMaxBadgeKinds, std::size_t{3} * 4);
    for (std::size_t i = 0; i < count; ++i) {
        BadgeKind kind;
        kind.identifier = in.string();
        kind.label = in.string();
        kind.imagePath = in.string();
        badges.kinds.push_back(std::move(kind));
    }
}

FrameType typeOf(const Begin&) {
    return FrameType::begin;
}
void write(Writer& out, const Begin& begin) {
    out.path(begin.folder);
}
void read(Reader& in, Begin& begin) {
    begin.folder = in.path();
}

FrameType typeOf(const End&) {
    return FrameType::end;
}
void write(Writer& out, const End& end) {
    out.path(end.folder);
}
void read(Reader& in, End& end) {
    end.folder = in.path();
}

FrameType typeOf(const Ask&) {
    return FrameType::ask;
}
void write(Writer& out, const Ask& ask) {
    out.path(ask.folder);
    out.count(ask.items.size(), kMaxBatchSize);
    for (const AskedItem& item : ask.items) {
        out.u8(item.isFolder ? kIsFolder : 0);
        out.name(item.name);
    }
}
void read(Reader& in, Ask& ask) {
    ask.folder = in.path();
    const std::size_t count = in.count(kMaxBatchSize, 1 + 4 + 1);
    ask.items.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        AskedItem item;
        item.isFolder = (in.u8() & kIsFolder) != 0;
        item.name = in.name();
        ask.items.push_back(std::move(item));
    }
}

FrameType typeOf(const Badges&) {
    return FrameType::badges;
}
void write(Writer& out, const Badges& badges) {
    out.path(badges.folder);
    out.count(badges.items.size(), kMaxBatchSize);
    for (const ItemBadge& item : badges.items) {
        out.u8(item.isAnswer ? kIsAnswer : 0);
        out.name(item.name);
        out.string(item.badge, kMaxNameSize);
    }
}
void read(Reader& in, Badges& badges) {
    badges.folder = in.path();
    const std::size_t count = in.count(kMaxBatchSize, 1 + 4 + 1 + 4);
    badges.items.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        ItemBadge item;
        item.isAnswer = (in.u8() & kIsAnswer) != 0;
        item.name = in.name();
        item.badge = in.string(kMaxNameSize);
        badges.items.push_back(std::move(item));
    }
}

FrameType typeOf(const MenuRequest&) {
    return FrameType::menuRequest;
}
void write(Writer& out, const MenuRequest& request) {
    out.u32(request.request);
    out.u32(request.context);
    out.u8(request.kind);
    out.path(request.folder);
    if (request.selection.empty()) {
        out.refuse();
    }
    out.count(request.selection.size(), kMaxFrameSize);
    for (const SelectedItem& item : request.selection) {
        out.u8(item.isFolder ? kIsFolder : 0);
        out.path(item.path);
    }
}
void read(Reader& in, MenuRequest& request) {
    request.request = in.u32();
    request.context = in.u32();
    request.kind = in.u8();
    request.folder = in.path();
    const std::size_t count = in.count(kMaxFrameSize, 1 + 4 + 1);
    if (count == 0) {
        in.refuse();
    }
    request.selection.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        SelectedItem item;
        item.isFolder = (in.u8() & kIsFolder) != 0;
        item.path = in.path();
        request.selection.push_back(std::move(item));
    }
}

FrameType typeOf(const MenuReply&) {
    return FrameType::menuReply;
}
void write(Writer& out, const MenuReply& reply) {
    out.u32(reply.request);
    out.u8(static_cast<std::uint8_t>(reply.outcome));
    out.u32(reply.menu);
    out.string(reply.title);
    std::size_t left = kMaxMenuItems;
    writeEntries(out, reply.entries, 1, left);
}
void read(Reader& in, MenuReply& reply) {
    reply.request = in.u32();
    reply.outcome = in.choice(MenuOutcome::hostFailed);
    reply.menu = in.u32();
    reply.title = in.string();
    std::size_t left = kMaxMenuItems;
    reply.entries = readEntries(in, 1, left);
}

FrameType typeOf(const Click&) {
    return FrameType::click;
}
void write(Writer& out, const Click& click) {
    out.u32(click.request);
    out.u32(click.menu);
    out.u32(click.item);
}
void read(Reader& in, Click& click) {
    click.request = in.u32();
    click.menu = in.u32();
    click.item = in.u32();
}

FrameType typeOf(const ClickReply&) {
    return FrameType::clickReply;
}
void write(Writer& out, const ClickReply& reply) {
    out.u32(reply.request);
    out.u8(static_cast<std::uint8_t>(reply.outcome));
}
void read(Reader& in, ClickReply& reply) {
    reply.request = in.u32();
    reply.outcome = in.choice(ClickOutcome::hostAbsent);
}

FrameType typeOf(const StatusRequest&) {
    return FrameType::statusRequest;
}
void write(Writer& out, const StatusRequest& request) {
    out.u32(request.request);
}
void read(Reader& in, StatusRequest& request) {
    request.request = in.u32();
}

FrameType typeOf(const StatusReply&) {
    return FrameType::statusReply;
}
void write(Writer& out, const StatusReply& reply) {
    out.u32(reply.request);
    out.u32(reply.pid);
    out.string(reply.programVersion);
    out.path(reply.volume);
    out.flag(reply.isVolumeFixed);
    out.string(reply.problem);
    out.u8(static_cast<std::uint8_t>(reply.hostState));
    out.u32(reply.hostPid);
    out.count(reply.frontEnds.size(), kMaxFrontEnds);
    for (const std::string& frontEnd : reply.frontEnds) {
        out.string(frontEnd);
    }
    out.u32(reply.shownFolders);
    out.u32(reply.waitingQuestions);
    out.u64(reply.messagesSent);
    out.u64(reply.messagesFailed);
    out.flag(reply.roundTrip.has_value());
    out.u64(
        static_cast<std::uint64_t>(reply.roundTrip.value_or(std::chrono::microseconds(0)).count()));
    out.string(reply.lastFailure);
    out.u64(static_cast<std::uint64_t>(reply.sinceLastFailure.count()));
    out.string(reply.logProblem);
}
void read(Reader& in, StatusReply& reply) {
    reply.request = in.u32();
    reply.pid = in.u32();
    reply.programVersion = in.string();
    reply.volume = in.path();
    reply.isVolumeFixed = in.flag();
    reply.problem = in.string();
    reply.hostState = in.choice(HostState::notAnswering);
    reply.hostPid = in.u32();
    const std::size_t count = in.count(kMaxFrontEnds, 4);
    for (std::size_t i = 0; i < count; ++i) {
        reply.frontEnds.push_back(in.string());
    }
    reply.shownFolders = in.u32();
    reply.waitingQuestions = in.u32();
    reply.messagesSent = in.u64();
    reply.messagesFailed = in.u64();
    const bool hasRoundTrip = in.flag();
    const auto microseconds = static_cast<std::int64_t>(in.u64() & 0x7FFF'FFFF'FFFFU);
    if (hasRoundTrip) {
        reply.roundTrip = std::chrono::microseconds(microseconds);
    }
    reply.lastFailure = in.string();
    reply.sinceLastFailure =
        std::chrono::milliseconds(static_cast<std::int64_t>(in.u64() & 0x7FFF'FFFF'FFFFU));
    if (in.hasMore()) {
        reply.logProblem = in.string();
    }
}

FrameType typeOf(const HostStateChange&) {
    return FrameType::hostState;
}
void write(Writer& out, const HostStateChange& change) {
    out.u8(static_cast<std::uint8_t>(change.state));
}
void read(Reader& in, HostStateChange& change) {
    change.state = in.choice(HostState::notAnswering);
}

FrameType typeOf(const Ping&) {
    return FrameType::ping;
}
void write(Writer& out, const Ping& ping) {
    out.u32(ping.request);
}
void read(Reader& in, Ping& ping) {
    ping.request = in.u32();
}

FrameType typeOf(const Pong&) {
    return FrameType::pong;
}
void write(Writer& out, const Pong& pong) {
    out.u32(pong.request);
}
void read(Reader& in, Pong& pong) {
    pong.request = in.u32();
}

/// Reads the frame as the one alternative of Message whose type it bears.
template <std::size_t index = 0>
Decoded decodeAs(FrameType type, Reader& in) {
    if constexpr (index == std::variant_size_v<Message>) {
        return {Decoded::Kind::unknownType, {}};
    } else {
        std::variant_alternative_t<index, Message> message;
        if (typeOf(message) != type) {
            return decodeAs<index + 1>(type, in);
        }
        read(in, message);
        if (!in.isGood()) {
            return {Decoded::Kind::malformed, {}};
        }
        return {Decoded::Kind::message, std::move(message)};
    }
}

} // namespace

bool appendFrame(Bytes& out, const Message& message) {
    const std::size_t start = out.size();
    Writer writer(out);
    writer.u32(0);
    std::visit(
        [&](const auto& alternative) {
            writer.u8(static_cast<std::uint8_t>(typeOf(alternative)));
            write(writer, alternative);
        },
        message);
    const std::size_t length = out.size() - start - kFrameHeaderSize;
    if (!writer.isGood() || length > kMaxFrameSize) {
        out.resize(start);
        return false;
    }
    for (std::size_t i = 0; i < kFrameHeaderSize; ++i) {
        out[start + i] = static_cast<std::uint8_t>(length >> (8 * i));
    }
    return true;
}

Decoded decodeFrame(ByteView frame) {
    Reader in(frame);
    const auto type = static_cast<FrameType>(in.u8());
    if (!in.isGood()) {
        return {Decoded::Kind::malformed, {}};
    }
    return decodeAs(type, in);
}

bool Volume::holds(std::string_view path) const {
    return folder == "/" || (!folder.empty() && path.starts_with(folder) &&
                             (path.size() == folder.size() || path[folder.size()] == '/'));
}

bool isPlainName(std::string_view name) {
    return !name.empty() && name.size() <= kMaxNameSize && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

bool isPlainPath(std::string_view path) {
    if (path.size() > kMaxPathSize || !path.starts_with('/')) {
        return false;
    }
    if (path == "/") {
        return true;
    }
    while (!path.empty()) {
        path.remove_prefix(1);
        const std::string_view name = path.substr(0, path.find('/'));
        if (!isPlainName(name)) {
            return false;
        }
        path.remove_prefix(name.size());
    }
    return true;
}

} // namespace corvid::link
