#include "App/Reporting/LogTrouble.h"

#include "Core/Base/PrintableText.h"

namespace corvid {

namespace {

class LogFailureCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "log"; }
    std::string message(int failure) const override {
        return static_cast<LogFailure>(failure) == LogFailure::diskDoesNotAnswer
                   ? "the disk did not answer"
                   : "there was no memory";
    }
};

std::string remedyFor(const std::error_code& reason) {
    if (reason == LogFailure::diskDoesNotAnswer) {
        return "See to that disk, or to its network";
    }
    if (reason == std::errc::no_space_on_device || reason == std::errc::file_too_large) {
        return "Make room on its disk, for example with \"corvid logs prune\"";
    }
    if (reason == std::errc::read_only_file_system) {
        return "Make its file system writable";
    }
    if (reason == std::errc::permission_denied || reason == std::errc::operation_not_permitted) {
        return "Make the folder your own and writable (chmod u+rwx)";
    }
    if (reason == std::errc::not_a_directory || reason == std::errc::no_such_file_or_directory) {
        return "Move away what is in its place, or make it writable for you";
    }
    return "Mend that";
}

} // namespace

std::error_code make_error_code(LogFailure failure) {
    static const LogFailureCategory category;
    return {static_cast<int>(failure), category};
}

std::string textForMissingFolder(const std::string& folder, const std::string& failure) {
    return "No log is written, since the folder " + printableText(folder) +
           " could not be made: " + printableText(failure) +
           ". Make that folder, writable for you, then end the extension: the next one writes a "
           "log.";
}

std::string textForMissingThread(const std::error_code& reason) {
    return "No log is written, since the system gave the extension no thread for it: " +
           reason.message() +
           ". End programs that you do not need, then the extension: the next one writes a log.";
}

std::string textForLoss(const std::string& folder, const std::error_code& reason,
                        std::uint64_t lost) {
    return "The log cannot be written to " + printableText(folder) + ": " + reason.message() +
           " (" + std::to_string(lost) + (lost == 1 ? " line is" : " lines are") +
           " lost so far). " + remedyFor(reason) + "; the log then goes on by itself.";
}

} // namespace corvid
