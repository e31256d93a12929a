#import "axelementhelper.h"

#include "macdesktop.h"

#include <unistd.h>

@implementation AXElementHelper {
    AXUIElementRef _element;
}

- (instancetype)initWithAXUIElementRef:(AXUIElementRef)element
{
    if ((self = [super init]))
        _element = element;
    return self;
}

- (AXUIElementRef)ref
{
    return _element;
}

- (void)print
{
    NSLog(@"Accessible Object role: '%@', title: '%@', description: '%@', value: '%@', rect: '%@'",
        [self role], [self title], [self description], [self value], NSStringFromRect([self rect]));
    NSLog(@"    Children: %ld", long([[self childList] count]));
}

- (NSArray *)_values:(NSString *)attribute
{
    CFArrayRef values = nullptr;
    if (AXUIElementCopyAttributeValues(
            _element, (__bridge CFStringRef)attribute, 0, MacDesktop::listLimit, &values)
        != kAXErrorSuccess)
        return nil;
    return CFBridgingRelease(values);
}

- (NSArray *)windowList
{
    return [self _values:(__bridge NSString *)kAXWindowsAttribute];
}

- (NSArray *)childList
{
    return [self _values:(__bridge NSString *)kAXChildrenAttribute];
}

- (AXUIElementRef)findDirectChildByRole:(NSString *)role
{
    for (id child in [self childList]) {
        AXElementHelper *helper =
            [[AXElementHelper alloc] initWithAXUIElementRef:(__bridge AXUIElementRef)child];
        if ([[helper role] isEqualToString:role])
            return (AXUIElementRef)CFBridgingRetain(child);
    }
    return nullptr;
}

- (id)_attributeValue:(NSString *)attribute
{
    CFTypeRef value = nullptr;
    if (AXUIElementCopyAttributeValue(_element, (__bridge CFStringRef)attribute, &value)
        != kAXErrorSuccess)
        return nil;
    return CFBridgingRelease(value);
}

- (NSString *)_stringAttributeValue:(NSString *)attribute
{
    id value = [self _attributeValue:attribute];
    if ([value isKindOfClass:[NSString class]])
        return value;
    return value ? [value description] : nil;
}

- (NSInteger)_numberAttributeValue:(NSString *)attribute
{
    return [AXElementHelper _numberFromValue:[self _attributeValue:attribute]];
}

- (BOOL)_boolAttributeValue:(NSString *)attribute
{
    return [AXElementHelper _boolFromValue:[self _attributeValue:attribute]];
}

- (NSRange)_rangeAttributeValue:(NSString *)attribute
{
    return [AXElementHelper _rangeFromValue:[self _attributeValue:attribute]];
}

- (NSRect)_rectAttributeValue:(NSString *)attribute
{
    return [AXElementHelper _rectFromValue:[self _attributeValue:attribute]];
}

- (NSPoint)_pointAttributeValue:(NSString *)attribute
{
    return [AXElementHelper _pointFromValue:[self _attributeValue:attribute]];
}

- (NSSize)_sizeAttributeValue:(NSString *)attribute
{
    return [AXElementHelper _sizeFromValue:[self _attributeValue:attribute]];
}

- (id)_attributeValue:(NSString *)attribute forParameter:(id)parameter
{
    CFTypeRef value = nullptr;
    if (AXUIElementCopyParameterizedAttributeValue(
            _element, (__bridge CFStringRef)attribute, (__bridge CFTypeRef)parameter, &value)
        != kAXErrorSuccess)
        return nil;
    return CFBridgingRelease(value);
}

- (id)_attributeValue:(NSString *)attribute forRange:(NSRange)range
{
    CFRange cfRange = CFRangeMake(CFIndex(range.location), CFIndex(range.length));
    id parameter = CFBridgingRelease(AXValueCreate(kAXValueTypeCFRange, &cfRange));
    return [self _attributeValue:attribute forParameter:parameter];
}

- (id)_attributeValue:(NSString *)attribute forNumber:(NSInteger)number
{
    id parameter = CFBridgingRelease(CFNumberCreate(nullptr, kCFNumberNSIntegerType, &number));
    return [self _attributeValue:attribute forParameter:parameter];
}

- (id)_attributeValue:(NSString *)attribute forPoint:(CGPoint)point
{
    id parameter = CFBridgingRelease(AXValueCreate(kAXValueTypeCGPoint, &point));
    return [self _attributeValue:attribute forParameter:parameter];
}

- (NSArray *)actions
{
    CFArrayRef names = nullptr;
    if (AXUIElementCopyActionNames(_element, &names) != kAXErrorSuccess)
        return nil;
    return CFBridgingRelease(names);
}

- (void)performAction:(NSString *)action
{
    AXUIElementPerformAction(_element, (__bridge CFStringRef)action);
}

- (NSString *)role
{
    return [self _stringAttributeValue:(__bridge NSString *)kAXRoleAttribute];
}

- (NSString *)title
{
    return [self _stringAttributeValue:(__bridge NSString *)kAXTitleAttribute];
}

- (NSString *)description
{
    return [self _stringAttributeValue:(__bridge NSString *)kAXDescriptionAttribute];
}

- (NSString *)value
{
    return [self _stringAttributeValue:(__bridge NSString *)kAXValueAttribute];
}

- (NSInteger)valueNumber
{
    return [self _numberAttributeValue:(__bridge NSString *)kAXValueAttribute];
}

- (NSRect)rect
{
    NSRect rect;
    rect.origin = [self _pointAttributeValue:(__bridge NSString *)kAXPositionAttribute];
    rect.size = [self _sizeAttributeValue:(__bridge NSString *)kAXSizeAttribute];
    return rect;
}

- (AXUIElementRef)parent
{
    return (AXUIElementRef)CFBridgingRetain(
        [self _attributeValue:(__bridge NSString *)kAXParentAttribute]);
}

- (BOOL)focused
{
    return [self _boolAttributeValue:(__bridge NSString *)kAXFocusedAttribute];
}

- (NSInteger)numberOfCharacters
{
    return [self _numberAttributeValue:(__bridge NSString *)kAXNumberOfCharactersAttribute];
}

- (NSString *)selectedText
{
    return [self _stringAttributeValue:(__bridge NSString *)kAXSelectedTextAttribute];
}

- (NSRange)selectedTextRange
{
    return [self _rangeAttributeValue:(__bridge NSString *)kAXSelectedTextRangeAttribute];
}

- (NSRange)visibleCharacterRange
{
    return [self _rangeAttributeValue:(__bridge NSString *)kAXVisibleCharacterRangeAttribute];
}

- (NSString *)help
{
    return [self _stringAttributeValue:(__bridge NSString *)kAXHelpAttribute];
}

- (NSInteger)insertionPointLineNumber
{
    return [self _numberAttributeValue:(__bridge NSString *)kAXInsertionPointLineNumberAttribute];
}

- (NSInteger)lineForIndex:(NSInteger)index
{
    return [AXElementHelper
        _numberFromValue:[self _attributeValue:(__bridge NSString *)
                                                   kAXLineForIndexParameterizedAttribute
                                     forNumber:index]];
}

- (NSRange)rangeForLine:(NSInteger)line
{
    return [AXElementHelper
        _rangeFromValue:[self _attributeValue:(__bridge NSString *)
                                                  kAXRangeForLineParameterizedAttribute
                                    forNumber:line]];
}

- (NSString *)stringForRange:(NSRange)range
{
    return [self _attributeValue:(__bridge NSString *)kAXStringForRangeParameterizedAttribute
                        forRange:range];
}

- (NSAttributedString *)attributedStringForRange:(NSRange)range
{
    return
        [self _attributeValue:(__bridge NSString *)kAXAttributedStringForRangeParameterizedAttribute
                     forRange:range];
}

- (NSRect)boundsForRange:(NSRange)range
{
    return [AXElementHelper
        _rectFromValue:[self _attributeValue:(__bridge NSString *)
                                                 kAXBoundsForRangeParameterizedAttribute
                                    forRange:range]];
}

- (NSRange)styleRangeForIndex:(NSInteger)index
{
    return [AXElementHelper
        _rangeFromValue:[self _attributeValue:(__bridge NSString *)
                                                  kAXStyleRangeForIndexParameterizedAttribute
                                    forNumber:index]];
}

+ (AXElementHelper *)getApplicationAXObject
{
    // Leaked on purpose: the helper does not own its element, and this one lives as long as
    // the process.
    return [[AXElementHelper alloc] initWithAXUIElementRef:AXUIElementCreateApplication(getpid())];
}

+ (NSInteger)_numberFromValue:(id)value
{
    NSInteger number = -1;
    if (!value || CFGetTypeID((__bridge CFTypeRef)value) != CFNumberGetTypeID())
        return -1;
    if (!CFNumberGetValue((__bridge CFNumberRef)value, kCFNumberNSIntegerType, &number))
        return -1;
    return number;
}

+ (BOOL)_boolFromValue:(id)value
{
    if (!value || CFGetTypeID((__bridge CFTypeRef)value) != CFBooleanGetTypeID())
        return NO;
    return CFBooleanGetValue((__bridge CFBooleanRef)value);
}

+ (BOOL)_isAXValue:(id)value ofType:(AXValueType)type
{
    return value && CFGetTypeID((__bridge CFTypeRef)value) == AXValueGetTypeID()
        && AXValueGetType((__bridge AXValueRef)value) == type;
}

+ (NSRange)_rangeFromValue:(id)value
{
    CFRange range = CFRangeMake(0, 0);
    if (![self _isAXValue:value ofType:kAXValueTypeCFRange]
        || !AXValueGetValue((__bridge AXValueRef)value, kAXValueTypeCFRange, &range))
        return NSMakeRange(0, 0);
    const MacDesktop::Range checked = MacDesktop::rangeOrEmpty(range.location, range.length);
    return NSMakeRange(NSUInteger(checked.location), NSUInteger(checked.length));
}

+ (NSRect)_rectFromValue:(id)value
{
    CGRect rect = CGRectZero;
    if (![self _isAXValue:value ofType:kAXValueTypeCGRect]
        || !AXValueGetValue((__bridge AXValueRef)value, kAXValueTypeCGRect, &rect))
        return NSZeroRect;
    return NSRectFromCGRect(rect);
}

+ (NSPoint)_pointFromValue:(id)value
{
    CGPoint point = CGPointZero;
    if (![self _isAXValue:value ofType:kAXValueTypeCGPoint]
        || !AXValueGetValue((__bridge AXValueRef)value, kAXValueTypeCGPoint, &point))
        return NSZeroPoint;
    return NSPointFromCGPoint(point);
}

+ (NSSize)_sizeFromValue:(id)value
{
    CGSize size = CGSizeZero;
    if (![self _isAXValue:value ofType:kAXValueTypeCGSize]
        || !AXValueGetValue((__bridge AXValueRef)value, kAXValueTypeCGSize, &size))
        return NSZeroSize;
    return NSSizeFromCGSize(size);
}

@end
