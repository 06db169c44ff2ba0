#include "Commands.h"

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/PropertyList.h"
#include "Core/Base/FileContents.h"
#include "Support/ArchiveNotation.h"
#include "Support/ArchiveTree.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

namespace {

struct DecodeOptions {
    std::vector<std::string> files;
    bool json = false;
};

// Why a file could not be shown: a word for a script, a sentence for a person.
struct Failure {
    std::string name;
    std::string sentence;
    Notation at;
};

std::optional<std::string> contents(const std::string& file, Failure& failure) {
    auto result = file == "-" ? readToEnd(stdin) : readFile(file);
    if (!result) {
        failure = {"unreadable", std::string("cannot be read: ") + std::strerror(errno), nullptr};
    }
    return result;
}

std::optional<Value> decoded(std::string_view contents, Failure& failure) {
    // Bytes may be looked at as characters.
    const ByteView bytes(reinterpret_cast<const std::uint8_t*>(contents.data()), contents.size());
    ArchiveError error;
    auto value = unarchivedObject(bytes, &error);
    if (!value && error.code == ArchiveError::Code::notAnArchive) {
        value = propertyListValue(bytes, &error);
    }
    if (!value) {
        const bool isByte = error.where == ArchiveError::Where::byte;
        failure = {std::string(name(error.code)), error.message(),
                   Notation{{isByte ? "byte" : "object", error.at}}};
        if (!error.key.empty()) {
            failure.at["key"] = error.key;
        }
    }
    return value;
}

std::optional<Notation> notation(const Value& value, Failure& failure) {
    std::string error;
    auto result = notationOf(value, error);
    if (!result) {
        failure = {"tooMuchSharing", error, nullptr};
    }
    return result;
}

bool show(const std::string& file, const DecodeOptions& options) {
    Failure failure;
    const auto read = contents(file, failure);
    const auto value = read ? decoded(*read, failure) : std::nullopt;
    if (!options.json) {
        if (!value) {
            std::cerr << "corvid decode: " << file << ": " << failure.sentence << '\n';
            return false;
        }
        if (options.files.size() > 1) {
            std::cout << file << ":\n";
        }
        std::cout << archiveTree(*value);
        return true;
    }
    const auto root = value ? notation(*value, failure) : std::nullopt;
    Notation line{{"file", file}};
    if (root) {
        line["root"] = *root;
    } else {
        line["error"] = failure.name;
        line["at"] = failure.at;
    }
    // A file's name may be no UTF-8.
    std::cout << line.dump(-1, ' ', false, Notation::error_handler_t::replace) << '\n';
    return root.has_value();
}

} // namespace

void addDecodeCommand(const Command& program) {
    auto options = std::make_shared<DecodeOptions>();
    const Command command =
        program.addCommand("decode", "Show what archives and property lists hold");
    command.addOption("FILE", options->files, "Files to read; - for standard input",
                      {.isRequired = true});
    command.addFlag("--json", options->json, "One JSON object a line for each file");
    command.setFooter(
        "With --json: {\"file\", \"root\"}, or {\"file\", \"error\", \"at\"} with the "
        "byte or the object where it went wrong.\n"
        "Exit status: 0 when every file was read, 1 when any failed.");
    command.onRun([options] {
        bool isGood = true;
        for (const std::string& file : options->files) {
            isGood = show(file, *options) && isGood;
        }
        if (!isGood) {
            throw CommandFailure{};
        }
    });
}

} // namespace corvid
