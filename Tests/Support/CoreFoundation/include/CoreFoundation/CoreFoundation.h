#pragma once

// The calls of Core Foundation that the sources for macOS make, and no others, declared as Apple
// documents them, so that those can be compiled and tested elsewhere. CoreFoundationDouble.cpp has
// them.
// https://developer.apple.com/documentation/corefoundation/cfmessageport

#include <cstdint>
#include <dispatch/dispatch.h>

extern "C" {

using Boolean = unsigned char;
using UInt8 = std::uint8_t;
using SInt32 = std::int32_t;
using CFIndex = long;
using CFTimeInterval = double;
using CFStringEncoding = std::uint32_t;

using CFTypeRef = const void*;
using CFAllocatorRef = const struct __CFAllocator*;
using CFStringRef = const struct __CFString*;
using CFDataRef = const struct __CFData*;
using CFMessagePortRef = struct __CFMessagePort*;

constexpr CFAllocatorRef kCFAllocatorDefault = nullptr;
constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;
constexpr SInt32 kCFMessagePortSuccess = 0;

struct CFMessagePortContext {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
};
using CFMessagePortCallBack = CFDataRef (*)(CFMessagePortRef local, SInt32 messageID,
                                            CFDataRef data, void* info);

void CFRelease(CFTypeRef object);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex size,
                                    CFStringEncoding encoding, Boolean isExternal);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex size);
const UInt8* CFDataGetBytePtr(CFDataRef data);
CFIndex CFDataGetLength(CFDataRef data);

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef allocator, CFStringRef name,
                                          CFMessagePortCallBack callback,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo);
CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef allocator, CFStringRef name);
SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 messageID, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval receiveTimeout,
                                CFStringRef replyMode, CFDataRef* returnData);
void CFMessagePortSetDispatchQueue(CFMessagePortRef port, dispatch_queue_t queue);
void CFMessagePortInvalidate(CFMessagePortRef port);
}
