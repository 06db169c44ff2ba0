#pragma once

#include "Platform/Interfaces/Bundle.h"
#include "Platform/Interfaces/Clock.h"
#include "Platform/Interfaces/Dispatch.h"
#include "Platform/Interfaces/FileManager.h"
#include "Platform/Interfaces/MessagePortService.h"
#include "Platform/Interfaces/Pasteboard.h"
#include "Platform/Interfaces/ProcessInfo.h"
#include "Platform/Interfaces/SystemLog.h"

namespace corvid {

/// Everything that the operating system gives this program. To port the system is to write these
/// classes; the conformance suite in Tests/Conformance says when they are right.
///
/// `main` (or a test) makes the objects, keeps them alive, and installs this list of references.
struct Platform {
    ProcessInfo& processInfo;
    FileManager& fileManager;
    Clock& clock;
    Bundle& mainBundle;
    Dispatch& dispatch;
    MessagePortService& messagePorts;
    SystemLog& systemLog;
    Pasteboard* pasteboard; ///< null where the system has none
};

/// The installed platform; fatal when there is none. Any thread.
const Platform& platform();

/// Installs `platform` (null for none) and returns the previous one. Not owned. For the line in
/// `main` that wires the program, and for tests.
const Platform* setPlatform(const Platform* platform);

} // namespace corvid
