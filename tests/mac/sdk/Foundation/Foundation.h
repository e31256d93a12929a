#pragma once
// Foundation: the classes, functions and constants the backend uses.
#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>
#include <objc/objc.h>

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double NSTimeInterval;
typedef NSUInteger NSStringEncoding;
enum { NSUTF8StringEncoding = 4 };

typedef CGPoint NSPoint;
typedef CGSize NSSize;
typedef CGRect NSRect;
struct _NSRange {
    NSUInteger location;
    NSUInteger length;
};
typedef struct _NSRange NSRange;
static inline NSRange NSMakeRange(NSUInteger location, NSUInteger length)
{
    NSRange range = { location, length };
    return range;
}
static inline NSRect NSMakeRect(CGFloat x, CGFloat y, CGFloat width, CGFloat height)
{
    NSRect rect = { { x, y }, { width, height } };
    return rect;
}
static inline NSSize NSMakeSize(CGFloat width, CGFloat height)
{
    NSSize size = { width, height };
    return size;
}
static inline NSRect NSRectFromCGRect(CGRect rect) { return rect; }
static inline NSPoint NSPointFromCGPoint(CGPoint point) { return point; }
static inline NSSize NSSizeFromCGSize(CGSize size) { return size; }
extern "C" const NSPoint NSZeroPoint;
extern "C" const NSSize NSZeroSize;
extern "C" const NSRect NSZeroRect;

@class NSString, NSArray, NSDictionary, NSError, NSMethodSignature;

@protocol NSObject
- (BOOL)isEqual:(id)object;
- (BOOL)isKindOfClass:(Class)aClass;
- (BOOL)respondsToSelector:(SEL)aSelector;
- (NSString *)description;
@end

__attribute__((objc_root_class))
@interface NSObject <NSObject>
+ (instancetype)alloc;
+ (instancetype)new;
+ (Class)class;
- (instancetype)init;
@end

typedef struct {
    unsigned long state;
    id __unsafe_unretained *itemsPtr;
    unsigned long *mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState *)state
                                  objects:(id __unsafe_unretained[])buffer
                                    count:(NSUInteger)len;
@end

@interface NSString : NSObject
+ (instancetype)stringWithCString:(const char *)cString encoding:(NSStringEncoding)encoding;
+ (instancetype)stringWithCharacters:(const UniChar *)characters length:(NSUInteger)length;
- (const char *)UTF8String;
- (NSUInteger)length;
- (BOOL)isEqualToString:(NSString *)aString;
- (NSString *)stringByDeletingLastPathComponent;
@end

@interface NSAttributedString : NSObject
@end

@interface NSNumber : NSObject
+ (NSNumber *)numberWithBool:(BOOL)value;
+ (NSNumber *)numberWithInteger:(NSInteger)value;
- (NSUInteger)unsignedIntegerValue;
- (NSInteger)integerValue;
- (BOOL)boolValue;
@end

@interface NSArray<__covariant ObjectType> : NSObject <NSFastEnumeration>
+ (instancetype)array;
+ (instancetype)arrayWithObjects:(const ObjectType[])objects count:(NSUInteger)count;
- (NSUInteger)count;
- (ObjectType)firstObject;
- (ObjectType)objectAtIndexedSubscript:(NSUInteger)index;
- (BOOL)containsObject:(ObjectType)anObject;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
- (void)addObject:(ObjectType)anObject;
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject <NSFastEnumeration>
+ (instancetype)dictionaryWithObjects:(const ObjectType[])objects
                              forKeys:(const KeyType[])keys
                                count:(NSUInteger)count;
- (ObjectType)objectForKeyedSubscript:(KeyType)key;
@end

@interface NSURL : NSObject
+ (NSURL *)fileURLWithPath:(NSString *)path;
- (NSString *)absoluteString;
- (NSString *)path;
@end

@interface NSMutableURLRequest : NSObject
@end

@interface NSError : NSObject
@end

@interface NSBundle : NSObject
+ (NSBundle *)mainBundle;
+ (NSBundle *)bundleWithURL:(NSURL *)url;
- (NSString *)bundlePath;
- (NSString *)bundleIdentifier;
@end

typedef NSString *NSNotificationName;

@interface NSNotification : NSObject
- (NSNotificationName)name;
- (id)object;
- (NSDictionary *)userInfo;
@end

@interface NSOperationQueue : NSObject
@end

@interface NSNotificationCenter : NSObject
+ (NSNotificationCenter *)defaultCenter;
- (id<NSObject>)addObserverForName:(NSNotificationName)name
                            object:(id)obj
                             queue:(NSOperationQueue *)queue
                        usingBlock:(void (^)(NSNotification *notification))block;
- (void)addObserver:(id)observer selector:(SEL)aSelector name:(NSNotificationName)aName object:(id)anObject;
- (void)removeObserver:(id)observer;
@end

@interface NSDistributedNotificationCenter : NSNotificationCenter
+ (NSDistributedNotificationCenter *)defaultCenter;
@end

// Key-value observing.
typedef NSString *NSKeyValueChangeKey;
typedef enum : NSUInteger {
    NSKeyValueChangeSetting = 1,
    NSKeyValueChangeInsertion = 2,
    NSKeyValueChangeRemoval = 3,
    NSKeyValueChangeReplacement = 4
} NSKeyValueChange;
// Options are flags (as NS_OPTIONS makes them in C++): a plain integer type.
typedef NSUInteger NSKeyValueObservingOptions;
enum : NSUInteger { NSKeyValueObservingOptionNew = 0x01, NSKeyValueObservingOptionOld = 0x02 };
extern "C" const NSKeyValueChangeKey NSKeyValueChangeKindKey;
extern "C" const NSKeyValueChangeKey NSKeyValueChangeNewKey;
extern "C" const NSKeyValueChangeKey NSKeyValueChangeOldKey;

@interface NSObject (NSKeyValueObserving)
- (void)observeValueForKeyPath:(NSString *)keyPath
                      ofObject:(id)object
                        change:(NSDictionary<NSKeyValueChangeKey, id> *)change
                       context:(void *)context;
- (void)addObserver:(NSObject *)observer
         forKeyPath:(NSString *)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(void *)context;
- (void)removeObserver:(NSObject *)observer forKeyPath:(NSString *)keyPath;
@end

// Spotlight.
@interface NSPredicate : NSObject
+ (NSPredicate *)predicateWithFormat:(NSString *)predicateFormat, ...;
@end

@interface NSSortDescriptor : NSObject
- (instancetype)initWithKey:(NSString *)key ascending:(BOOL)ascending;
@end

@interface NSMetadataItem : NSObject
- (id)valueForAttribute:(NSString *)key;
@end

@interface NSMetadataQuery : NSObject
- (void)setSearchScopes:(NSArray *)scopes;
- (void)setPredicate:(NSPredicate *)predicate;
- (void)setNotificationBatchingInterval:(NSTimeInterval)interval;
- (void)setSortDescriptors:(NSArray<NSSortDescriptor *> *)descriptors;
- (BOOL)startQuery;
- (void)stopQuery;
- (NSArray *)results;
@end
extern "C" NSNotificationName const NSMetadataQueryDidFinishGatheringNotification;
extern "C" NSString *const NSMetadataItemPathKey;

// AppleScript in this process.
@interface NSAppleEventDescriptor : NSObject
- (NSString *)stringValue;
@end

@interface NSAppleScript : NSObject
- (instancetype)initWithSource:(NSString *)source;
- (NSAppleEventDescriptor *)executeAndReturnError:(NSDictionary<NSString *, id> **)errorInfo;
@end

// User notifications.
@interface NSUserNotification : NSObject
- (void)setTitle:(NSString *)title;
- (void)setSubtitle:(NSString *)subtitle;
- (void)setInformativeText:(NSString *)text;
@end

@interface NSUserNotificationCenter : NSObject
+ (NSUserNotificationCenter *)defaultUserNotificationCenter;
- (void)deliverNotification:(NSUserNotification *)notification;
@end

extern "C" {
void NSLog(NSString *format, ...);
NSString *NSHomeDirectory(void);
Class NSClassFromString(NSString *name);
NSString *NSStringFromRect(NSRect rect);
}

static inline id CFBridgingRelease(CFTypeRef object) { return (__bridge_transfer id)object; }
static inline CFTypeRef CFBridgingRetain(id object) { return (__bridge_retained CFTypeRef)object; }
