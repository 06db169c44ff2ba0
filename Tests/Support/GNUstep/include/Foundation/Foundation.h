#pragma once

// GNUstep's Foundation, and what the macOS sources use of Apple's that version 1.28 lacks.
// Realised in Additions.mm.

#include_next <Foundation/Foundation.h>

@interface NSObject (CorvidAdditions)
/// GNUstep's description, which is the long form.
- (NSString*)debugDescription;
@end

@interface NSKeyedUnarchiver (CorvidAdditions)
/// Checks the class of the root object only, after decoding.
+ (id)unarchivedObjectOfClasses:(NSSet*)classes fromData:(NSData*)data error:(NSError**)error;
@end
