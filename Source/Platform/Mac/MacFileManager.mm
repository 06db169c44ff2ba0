#import "Platform/Mac/MacFileManager.h"

#import <Foundation/Foundation.h>

#include "Platform/Mac/FoundationValues.h"
#include "Platform/Unix/LastError.h"
#include "Platform/Unix/UnixAppendFile.h"

#include <dirent.h>
#include <memory>
#include <unistd.h>

namespace corvid {

namespace {

NSFileManager* manager() {
    return [NSFileManager defaultManager];
}

NSString* foundationPath(const std::string& path) {
    return [manager() stringWithFileSystemRepresentation:path.data() length:path.size()];
}

std::chrono::system_clock::time_point timePoint(NSDate* date) {
    const std::chrono::duration<double> sinceEpoch([date timeIntervalSince1970]);
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(sinceEpoch));
}

} // namespace

FileManager::Existence MacFileManager::fileExistsAtPath(const std::string& path) const {
    @autoreleasepool {
        BOOL isDirectory = NO;
        const bool exists = [manager() fileExistsAtPath:foundationPath(path)
                                            isDirectory:&isDirectory];
        return {exists, exists && isDirectory};
    }
}

std::optional<std::string> MacFileManager::createDirectoryAtPath(const std::string& path) {
    @autoreleasepool {
        NSDictionary* attributes =
            [NSDictionary dictionaryWithObject:[NSNumber numberWithUnsignedLong:0700]
                                        forKey:NSFilePosixPermissions];
        NSError* error = nil;
        if ([manager() createDirectoryAtPath:foundationPath(path)
                 withIntermediateDirectories:YES
                                  attributes:attributes
                                       error:&error]) {
            return std::nullopt;
        }
        return "\"" + path + "\": " + utf8String([error debugDescription]);
    }
}

std::unique_ptr<AppendFile> MacFileManager::createFileAtPath(const std::string& path,
                                                             std::error_code& error) {
    return UnixAppendFile::create(path, error);
}

std::vector<FileManager::RegularFile>
MacFileManager::regularFilesOfDirectoryAtPath(const std::string& path,
                                              std::error_code& error) const {
    @autoreleasepool {
        error.clear();
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
        if (folder == nullptr) {
            error = lastError();
            return {};
        }
        std::vector<RegularFile> files;
        while (const dirent* entry = readdir(folder.get())) {
            // Does not follow a link, and knows when the file was made.
            NSDictionary* attributes =
                [manager() attributesOfItemAtPath:foundationPath(path + "/" + entry->d_name)
                                            error:NULL];
            if ([[attributes fileType] isEqualToString:NSFileTypeRegular]) {
                NSDate* created = [attributes fileCreationDate];
                files.push_back(
                    {entry->d_name, [attributes fileSize],
                     timePoint(created != nil ? created : [attributes fileModificationDate])});
            }
        }
        return files;
    }
}

std::error_code MacFileManager::removeItemAtPath(const std::string& path) {
    return unlink(path.c_str()) == 0 ? std::error_code() : lastError();
}

std::optional<std::string> MacFileManager::applicationLibraryDirectory() const {
    @autoreleasepool {
        NSArray* folders =
            NSSearchPathForDirectoriesInDomains(NSLibraryDirectory, NSUserDomainMask, YES);
        if ([folders count] == 0) {
            return std::nullopt;
        }
        return std::string([[folders objectAtIndex:0] fileSystemRepresentation]);
    }
}

} // namespace corvid
