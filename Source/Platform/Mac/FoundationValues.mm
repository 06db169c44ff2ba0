#import "Platform/Mac/FoundationValues.h"

#import <AppKit/AppKit.h>

#include "Core/Archive/KeyedArchive.h"
#include "Core/Base/UTF8.h"
#include "Platform/Mac/Retained.h"

namespace corvid {

namespace {

NSString* decode(std::string_view text) {
    return Retained<NSString>::adopt([[NSString alloc] initWithBytes:text.data()
                                                              length:text.size()
                                                            encoding:NSUTF8StringEncoding])
        .autoreleased();
}

std::string replaceInvalid(std::string_view text) {
    constexpr std::string_view kReplacementText = "\xEF\xBF\xBD"; // U+FFFD
    std::string valid;
    while (!text.empty()) {
        const DecodedScalar step = decodeUTF8(text);
        valid += step.valid ? text.substr(0, step.length) : kReplacementText;
        text.remove_prefix(step.length);
    }
    return valid;
}

NSSet* menuItemClasses() {
    return [NSSet setWithObjects:[NSString class], [NSNumber class], [NSData class], [NSDate class],
                                 [NSURL class], [NSArray class], [NSDictionary class],
                                 [NSSet class], [NSAttributedString class], [NSFont class],
                                 [NSColor class], [NSParagraphStyle class], [NSImage class], nil];
}

} // namespace

NSString* foundationString(std::string_view text) {
    NSString* string = decode(text);
    return string != nil ? string : decode(replaceInvalid(text));
}

std::string utf8String(NSString* string) {
    NSData* bytes = [string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
    return {static_cast<const char*>([bytes bytes]), [bytes length]};
}

NSURL* foundationURL(const URL& url) {
    NSURL* base = url.base() != nullptr ? foundationURL(*url.base()) : nil;
    return [NSURL URLWithString:foundationString(url.relativeString()) relativeToURL:base];
}

std::optional<URL> portableURL(NSURL* url) {
    if (url == nil) {
        return std::nullopt;
    }
    const std::string text = utf8String([url relativeString]);
    if (const std::optional<URL> base = portableURL([url baseURL])) {
        return URL::fromText(text, *base);
    }
    return URL::fromText(text);
}

id foundationObject(const Value& value) {
    const Bytes archive = archivedData(value);
    NSData* data = [NSData dataWithBytes:archive.data() length:archive.size()];
    return [NSKeyedUnarchiver unarchivedObjectOfClasses:menuItemClasses() fromData:data error:NULL];
}

Value portableValue(id object) {
    if (object == nil) {
        return {};
    }
    NSData* data = nil;
    @try {
        data = [NSKeyedArchiver archivedDataWithRootObject:object
                                     requiringSecureCoding:NO
                                                     error:NULL];
    } @catch (NSException*) {
        // The object's class cannot be archived.
        return {};
    }
    const auto* bytes = static_cast<const std::uint8_t*>([data bytes]);
    return unarchivedObject(ByteView(bytes, [data length])).value_or(Value());
}

} // namespace corvid
