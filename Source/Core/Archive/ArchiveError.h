#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvid {

/// Why an archive or a property list was refused, and where.
struct ArchiveError {
    enum class Code {
        // The container as a whole.
        notAPropertyList,
        tooLarge,
        truncated,
        badTrailer,
        trailingBytes,
        tooManyObjects,
        badOffset,
        // One value of the property list.
        referenceOutOfRange,
        unknownType,
        badLength,
        integerOutOfRange,
        badText,
        stringTooLong,
        keyNotString,
        duplicateKey,
        tooManyKeys,
        tooDeep,
        cycle,
        tooMuchMemory,
        // The frame of a keyed archive.
        notAnArchive,
        unknownArchiver,
        unsupportedVersion,
        missingObjects,
        missingRoot,
        nilRoot,
        // One object of a keyed archive.
        uidOutOfRange,
        notAnObject,
        missingClass,
        badClass,
        missingKey,
        wrongType,
        nilElement,
        keysWithoutObjects,
        badURL,
        // XML.
        badXML,
        unsupportedEncoding,
        unknownElement,
        badNesting,
        badNumber,
        badDate,
        badBase64,
    };

    /// What `at` counts.
    enum class Where {
        byte,   ///< bytes from the start of what was read
        object, ///< the index in the archive's list of objects
    };

    Code code = Code::notAPropertyList;
    Where where = Where::byte;
    std::uint64_t at = 0;
    /// The key of the object that is to blame; empty when none is.
    std::string key = {};

    /// A sentence for a person: what is wrong, with the place and the key. Any thread.
    std::string message() const;

    friend bool operator==(const ArchiveError&, const ArchiveError&) = default;
};

/// The name of `code` as scripts see it, such as "uidOutOfRange". Static.
std::string_view name(ArchiveError::Code code);

} // namespace corvid
