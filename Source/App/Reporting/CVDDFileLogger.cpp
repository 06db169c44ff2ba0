#include "App/Reporting/CVDDFileLogger.h"

#include "App/Reporting/LogTrouble.h"
#include "App/Reporting/LogWriterThread.h"
#include "App/Reporting/ThreadWithoutSignals.h"

#include <atomic>
#include <system_error>
#include <utility>

namespace corvid {

namespace {

// A message escapes to at most four bytes a byte.
static_assert(CVLumberjackDefaultLogFormatter::kMaximumMessageSize * 4 + 1024 <=
              CVDDFileLogger::kRingSize);

std::atomic<bool> threadIsLeftBehind{false};

} // namespace

CVDDFileLogger::CVDDFileLogger(std::shared_ptr<CVDDLogFileManagerDefault> manager,
                               const LogWaits& waits)
    : writer_(std::make_shared<LogWriterThread>(std::move(manager), waits)) {}

CVDDFileLogger::~CVDDFileLogger() {
    if (!thread_.joinable()) {
        return;
    }
    if (writer_->stop()) {
        thread_.join();
    } else {
        threadIsLeftBehind.store(true);
        thread_.detach();
    }
}

void CVDDFileLogger::setLogFormatter(std::unique_ptr<CVLumberjackDefaultLogFormatter> formatter) {
    writer_->setFormatter(std::move(formatter));
}

void CVDDFileLogger::setMaximumFileSize(std::uint64_t bytes) {
    writer_->files().setMaximumFileSize(bytes);
}

std::uint64_t CVDDFileLogger::maximumFileSize() const {
    return writer_->files().maximumFileSize();
}

void CVDDFileLogger::setRollingFrequency(std::chrono::seconds age) {
    writer_->files().setRollingFrequency(age);
}

std::chrono::seconds CVDDFileLogger::rollingFrequency() const {
    return writer_->files().rollingFrequency();
}

CVDDLogFileManagerDefault& CVDDFileLogger::logFileManager() const {
    return writer_->files().manager();
}

void CVDDFileLogger::start() {
    if (logFileManager().logsDirectory().empty()) {
        writer_->setStartFailure(logFileManager().directoryProblem());
        return;
    }
    writer_->prepare();
    try {
        thread_ = threadWithoutSignals([writer = writer_] { writer->run(); });
    } catch (const std::system_error& error) {
        writer_->setStartFailure(textForMissingThread(error.code()));
        return;
    }
    writer_->waitForOpening();
}

void CVDDFileLogger::logMessage(std::string_view message, std::int32_t flag) {
    if (thread_.joinable()) {
        writer_->log(message, flag);
    }
}

void CVDDFileLogger::flush() {
    if (thread_.joinable()) {
        writer_->flush();
    }
}

std::string CVDDFileLogger::problem() const {
    return writer_->problem();
}

void CVDDFileLogger::writeQueuedInSignalHandler() noexcept {
    writer_->writeQueuedInSignalHandler();
}

bool CVDDFileLogger::isThreadLeftBehind() {
    return threadIsLeftBehind.load();
}

} // namespace corvid
