#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// What a program takes on its command line. The library behind it is CLI11; it is all templates,
// so it is compiled in one place, here, and not again in every command.

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace corvid {

/// Ends a program with an exit status; the reason has been written to standard error.
struct CommandFailure {
    int status = 1;
};

/// The command line as a whole makes no sense. Ends the program with exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Writes "corvid: " and `text` to standard error, after all that was written to standard output,
/// and throws CommandFailure. Names of files in `text` go through printableText() first.
[[noreturn]] void fail(const std::string& text, int status = 1);

struct ValueRange {
    double minimum;
    double maximum;
};
struct OptionTraits {
    bool isRequired = false;
    /// The value's name in the help, for example "DIR".
    const char* typeName = nullptr;
    /// The environment variable that holds the value where the command line has none.
    const char* environmentVariable = nullptr;
    /// A heading of its own in the help.
    const char* group = nullptr;
    std::optional<ValueRange> range = {};
    bool showsDefault = false;
};

/// A command, or the program itself. A light reference: copies speak of the same command.
class Command {
public:
    Command addCommand(const char* name, const char* description) const;
    /// A command that is complete without a sub-command, although it has some.
    void makeCommandsOptional() const;
    /// Text below the help.
    void setFooter(const char* text) const;

    void addFlag(const char* names, bool& value, const char* help) const;
    /// An option ("-n,--lines") or, without dashes, an argument by its place ("PATH"). `value` is
    /// written while the command line is read, and must outlive that.
    template <typename Value>
    void addOption(const char* names, Value& value, const std::string& help,
                   const OptionTraits& traits = {}) const;

    /// What the command does once its options are read; not called when a sub-command was given.
    /// It fails by throwing CommandFailure or UsageError, for example with fail().
    void onRun(std::function<void()> action) const;

private:
    friend class CommandLine;
    explicit Command(CLI::App& app) : app_(&app) {}
    CLI::App* app_;
};

extern template void Command::addOption(const char*, std::string&, const std::string&,
                                        const OptionTraits&) const;
extern template void Command::addOption(const char*, std::optional<std::string>&,
                                        const std::string&, const OptionTraits&) const;
extern template void Command::addOption(const char*, std::vector<std::string>&, const std::string&,
                                        const OptionTraits&) const;
extern template void Command::addOption(const char*, double&, const std::string&,
                                        const OptionTraits&) const;
extern template void Command::addOption(const char*, std::uint64_t&, const std::string&,
                                        const OptionTraits&) const;
extern template void Command::addOption(const char*, std::optional<std::uint64_t>&,
                                        const std::string&, const OptionTraits&) const;
extern template void Command::addOption(const char*, std::optional<int>&, const std::string&,
                                        const OptionTraits&) const;

/// A program's whole command line: --help, --version, and what its commands add.
class CommandLine {
public:
    CommandLine(const char* description, const char* version);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// The program itself. Once it has sub-commands, one of them must be given.
    Command program() const;

    /// Reads the command line and runs the command that it names. Gives the exit status of the
    /// program: 0, that of a CommandFailure, or 2 when the command line is wrong.
    int run(int argc, char** argv);

private:
    std::unique_ptr<CLI::App> app_;
};

} // namespace corvid
