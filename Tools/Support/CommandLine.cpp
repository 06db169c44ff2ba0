#include "CommandLine.h"

#include "Core/Base/PrintableText.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <type_traits>
#include <utility>

namespace corvid {

namespace {

constexpr int kUsageStatus = 2;

} // namespace

void fail(const std::string& text, int status) {
    std::fflush(stdout);
    std::fprintf(stderr, "corvid: %s\n", text.c_str());
    throw CommandFailure{status};
}

Command Command::addCommand(const char* name, const char* description) const {
    app_->require_subcommand(1);
    return Command(*app_->add_subcommand(name, description));
}

void Command::makeCommandsOptional() const {
    app_->require_subcommand(0, 1);
}

void Command::setFooter(const char* text) const {
    app_->footer(text);
}

void Command::addFlag(const char* names, bool& value, const char* help) const {
    app_->add_flag(names, value, help);
}

template <typename Value>
void Command::addOption(const char* names, Value& value, const std::string& help,
                        const OptionTraits& traits) const {
    CLI::Option* const option = app_->add_option(names, value, help);
    option->required(traits.isRequired);
    if constexpr (std::is_same_v<Value, std::uint64_t> ||
                  std::is_same_v<Value, std::optional<std::uint64_t>>) {
        option->check(CLI::NonNegativeNumber); // Else the library takes -1 for a large number.
    }
    if (traits.typeName != nullptr) {
        option->type_name(traits.typeName);
    }
    if (traits.environmentVariable != nullptr) {
        option->envname(traits.environmentVariable);
    }
    if (traits.group != nullptr) {
        option->group(traits.group);
    }
    if (traits.range) {
        option->check(CLI::Range(traits.range->minimum, traits.range->maximum));
    }
    if (traits.showsDefault) {
        option->capture_default_str();
    }
}

template void Command::addOption(const char*, std::string&, const std::string&,
                                 const OptionTraits&) const;
template void Command::addOption(const char*, std::optional<std::string>&, const std::string&,
                                 const OptionTraits&) const;
template void Command::addOption(const char*, std::vector<std::string>&, const std::string&,
                                 const OptionTraits&) const;
template void Command::addOption(const char*, double&, const std::string&,
                                 const OptionTraits&) const;
template void Command::addOption(const char*, std::uint64_t&, const std::string&,
                                 const OptionTraits&) const;
template void Command::addOption(const char*, std::optional<std::uint64_t>&, const std::string&,
                                 const OptionTraits&) const;
template void Command::addOption(const char*, std::optional<int>&, const std::string&,
                                 const OptionTraits&) const;

void Command::onRun(std::function<void()> action) const {
    app_->callback([app = app_, action = std::move(action)] {
        if (app->get_subcommands().empty()) {
            action();
        }
    });
}

CommandLine::CommandLine(const char* description, const char* version)
    : app_(std::make_unique<CLI::App>(description)) {
    app_->set_version_flag("--version", version);
}

CommandLine::~CommandLine() = default;

Command CommandLine::program() const {
    return Command(*app_);
}

int CommandLine::run(int argc, char** argv) {
    try {
        app_->parse(argc, argv);
    } catch (const CommandFailure& failure) {
        return failure.status;
    } catch (const UsageError& error) {
        std::fprintf(stderr, "%s\nRun with --help for more information.\n", error.what());
        return kUsageStatus;
    } catch (const CLI::RequiredError& error) {
        // The library says only that a command is missing.
        if (const auto unknown = app_->remaining(); !unknown.empty()) {
            std::fprintf(stderr,
                         "There is no command \"%s\".\nRun with --help for more information.\n",
                         printableText(unknown.front()).c_str());
            return kUsageStatus;
        }
        app_->exit(error);
        return kUsageStatus;
    } catch (const CLI::ParseError& error) {
        return app_->exit(error) == 0 ? 0 : kUsageStatus;
    }
    return 0;
}

} // namespace corvid
