#import <AppKit/AppKit.h>

@implementation NSObject (CorvidAdditions)

- (NSString*)debugDescription {
    return [self description];
}

@end

@implementation NSKeyedUnarchiver (CorvidAdditions)

+ (id)unarchivedObjectOfClasses:(NSSet*)classes fromData:(NSData*)data error:(NSError**)error {
    id object = nil;
    @try {
        object = [NSKeyedUnarchiver unarchiveObjectWithData:data];
    } @catch (NSException* exception) {
        if (error != NULL) {
            *error = [NSError errorWithDomain:[exception name] code:1 userInfo:nil];
        }
        return nil;
    }
    for (Class allowed in classes) {
        if ([object isKindOfClass:allowed]) {
            return object;
        }
    }
    return nil;
}

@end
