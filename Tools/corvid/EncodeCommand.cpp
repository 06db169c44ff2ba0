#include "Commands.h"

#include "Core/Archive/KeyedArchive.h"
#include "Support/ArchiveNotation.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>

namespace corvid {

namespace {

Bytes encoded(std::istream& in) {
    Notation notation;
    try {
        notation = Notation::parse(in);
    } catch (const Notation::parse_error& error) {
        fail(std::string("standard input is not JSON: ") + error.what());
    }
    std::string mistake;
    const auto value = valueOf(notation, mistake);
    if (!value) {
        fail(mistake);
    }
    return archivedData(*value);
}

void write(const Bytes& archive, std::ostream& out, const std::string& name) {
    // The stream takes characters.
    out.write(reinterpret_cast<const char*>(archive.data()),
              static_cast<std::streamsize>(archive.size()));
    out.flush();
    if (!out) {
        fail(name + ": cannot be written: " + std::strerror(errno));
    }
}

} // namespace

void addEncodeCommand(const Command& program) {
    auto file = std::make_shared<std::string>();
    const Command command = program.addCommand(
        "encode", "Write an archive of what standard input says, as decode --json shows it");
    command.addOption("-o", *file, "Where to; standard output unless given", {.typeName = "FILE"});
    command.setFooter("Example: echo '{\"badgeID\": \"synced\", \"path\": {\"$url\": "
                      "\"file:///Volumes/Corvid/a.txt\"}}' | corvid encode -o push.archive");
    command.onRun([file] {
        if (file->empty() && isatty(STDOUT_FILENO) != 0) {
            fail("an archive is binary; name a file with -o, or send it to one");
        }
        const Bytes archive = encoded(std::cin);
        if (file->empty()) {
            write(archive, std::cout, "standard output");
            return;
        }
        std::ofstream out(*file, std::ios::binary);
        write(archive, out, *file);
    });
}

} // namespace corvid
