#include "App/Reporting/LogFileWriter.h"

#include "Platform/Interfaces/Platform.h"

#include <algorithm>
#include <utility>

namespace corvid {

namespace {

constexpr std::int32_t kWarnFlag = 2;

/// The length of the whole lines at the front of `text` that fit into `limit` bytes.
std::size_t wholeLines(std::string_view text, std::uint64_t limit) {
    if (text.size() <= limit) {
        return text.size();
    }
    const std::size_t newline = text.substr(0, limit).rfind('\n');
    return newline == std::string_view::npos ? 0 : newline + 1;
}

std::uint64_t countLines(std::string_view text) {
    return static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace

LogFileWriter::LogFileWriter(std::shared_ptr<CVDDLogFileManagerDefault> manager)
    : manager_(std::move(manager)) {}

LogFileWriter::~LogFileWriter() {
    fileForSignals_.store(nullptr);
}

void LogFileWriter::open() {
    beginFile();
}

std::size_t LogFileWriter::writeSome(std::string_view lines) {
    const std::size_t firstLine = lines.find('\n') + 1;
    const std::string notice = noticeOfLoss();
    if (prepareFileFor(notice.size() + firstLine) && append(notice) == notice.size()) {
        lostLines_ = 0;
        const std::uint64_t room = maximumFileSize_ > size_ ? maximumFileSize_ - size_ : 0;
        const std::size_t portion =
            maximumFileSize_ == 0 ? lines.size() : std::max(wholeLines(lines, room), firstLine);
        const std::size_t written = append(lines.substr(0, portion));
        if (written == portion) {
            return portion;
        }
        lostLines_ += countLines(lines.substr(written));
    } else {
        lostLines_ += countLines(lines);
    }
    return lines.size();
}

void LogFileWriter::countLost(std::uint64_t lines, const std::error_code& reason) {
    lostLines_ += lines;
    lossReason_ = reason;
}

void LogFileWriter::retry() {
    const std::string notice = noticeOfLoss();
    if (prepareFileFor(notice.size()) && append(notice) == notice.size()) {
        lostLines_ = 0;
    }
}

std::error_code LogFileWriter::trouble() const {
    return lostLines_ > 0 || current_.file == nullptr ? lossReason_ : std::error_code();
}

bool LogFileWriter::hasRoomFor(std::size_t bytes) const {
    return maximumFileSize_ == 0 || size_ == 0 || size_ + bytes <= maximumFileSize_;
}

bool LogFileWriter::isTooOld() const {
    if (rollingFrequency_ == std::chrono::seconds(0)) {
        return false;
    }
    // Either clock may stand still where the other goes on: the monotonic one while the machine
    // sleeps, the other when the user sets it back.
    const Clock& clock = platform().clock;
    return clock.now() - begun_ >= rollingFrequency_ ||
           clock.monotonicNow() - begunMonotonic_ >= rollingFrequency_;
}

bool LogFileWriter::prepareFileFor(std::size_t firstLine) {
    const bool usable =
        current_.file != nullptr && current_.file->isAtPath(current_.path) && hasRoomFor(firstLine);
    if (usable && !isTooOld()) {
        return true;
    }
    // A file that is merely too old goes on as long as no new one can be made.
    return beginFile() || usable;
}

bool LogFileWriter::beginFile() {
    std::error_code error;
    CVDDLogFileManagerDefault::LogFile made = manager_->createNewLogFile(error);
    if (made.file == nullptr) {
        lossReason_ = error;
        return false;
    }
    fileForSignals_.store(made.file.get());
    std::swap(current_, made);
    size_ = 0;
    begun_ = platform().clock.now();
    begunMonotonic_ = platform().clock.monotonicNow();
    return true;
}

std::size_t LogFileWriter::append(std::string_view lines) {
    const AppendFile::Appended appended = current_.file->append(lines);
    if (appended.error) {
        lossReason_ = appended.error;
    }
    const std::size_t whole = wholeLines(lines, appended.bytes);
    size_ += whole;
    if (whole != appended.bytes && current_.file->truncate(size_)) {
        // Half a line stays in the file; what comes next shall not be taken for its end.
        fileForSignals_.store(nullptr);
        current_.file.reset();
    }
    return whole;
}

std::string LogFileWriter::noticeOfLoss() {
    if (lostLines_ == 0) {
        return {};
    }
    const Platform& system = platform();
    std::string line(
        formatter_.prefix(system.clock.now(), system.processInfo.threadIdentifier(), kWarnFlag));
    CVLumberjackDefaultLogFormatter::appendMessage(
        line, "File logger: " + std::to_string(lostLines_) +
                  (lostLines_ == 1 ? " line" : " lines") +
                  " could not be written: " + lossReason_.message());
    line += '\n';
    return line;
}

void LogFileWriter::writeInSignalHandler(std::string_view lines) noexcept {
    if (AppendFile* file = fileForSignals_.load()) {
        file->append(lines);
    }
}

} // namespace corvid
