#import "Platform/Mac/MacSystemLog.h"

#include "Platform/Mac/FoundationValues.h"

namespace corvid {

void MacSystemLog::log(std::string_view message) {
    @autoreleasepool {
        NSLog(@"%@", foundationString(message));
    }
}

} // namespace corvid
