#pragma once

#include "Core/Base/Bytes.h"

namespace corvid {

/// True when `bytes` may be an XML property list: they begin with "<", after a byte order mark and
/// white space if there are any.
bool looksLikeXML(ByteView bytes);

/// The binary property list that says the same as the XML one in `bytes`. A dictionary with the
/// one key "CF$UID" and an integer becomes a reference between objects. Only UTF-8 is read, only
/// the five entities of XML itself are known, and no document type is looked up.
/// Throws ArchiveRefusal for anything else. Takes at most four times the bytes. Any thread.
Bytes binaryPropertyListFromXML(ByteView bytes);

} // namespace corvid
