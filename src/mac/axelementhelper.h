#pragma once

// One accessibility element with typed reads of its attributes, parameterised attributes and
// actions. The element is neither retained nor released: its owner keeps it alive.

#import <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>

@interface AXElementHelper : NSObject

- (instancetype)initWithAXUIElementRef:(AXUIElementRef)element;
- (AXUIElementRef)ref;
- (void)print;
- (NSArray *)windowList;
- (NSArray *)childList;
// The first direct child of that role, or null; the caller releases it.
- (AXUIElementRef)findDirectChildByRole:(NSString *)role;

- (id)_attributeValue:(NSString *)attribute;
- (NSString *)_stringAttributeValue:(NSString *)attribute;
- (NSInteger)_numberAttributeValue:(NSString *)attribute;
- (BOOL)_boolAttributeValue:(NSString *)attribute;
- (NSRange)_rangeAttributeValue:(NSString *)attribute;
- (NSRect)_rectAttributeValue:(NSString *)attribute;
- (NSPoint)_pointAttributeValue:(NSString *)attribute;
- (NSSize)_sizeAttributeValue:(NSString *)attribute;
- (id)_attributeValue:(NSString *)attribute forParameter:(id)parameter;
- (id)_attributeValue:(NSString *)attribute forRange:(NSRange)range;
- (id)_attributeValue:(NSString *)attribute forNumber:(NSInteger)number;
- (id)_attributeValue:(NSString *)attribute forPoint:(CGPoint)point;

- (NSArray *)actions;
- (void)performAction:(NSString *)action;

- (NSString *)role;
- (NSString *)title;
- (NSString *)description;
- (NSString *)value;
- (NSInteger)valueNumber;
- (NSRect)rect;
// The caller releases it.
- (AXUIElementRef)parent;
- (BOOL)focused;
- (NSInteger)numberOfCharacters;
- (NSString *)selectedText;
- (NSRange)selectedTextRange;
- (NSRange)visibleCharacterRange;
- (NSString *)help;
- (NSInteger)insertionPointLineNumber;
- (NSInteger)lineForIndex:(NSInteger)index;
- (NSRange)rangeForLine:(NSInteger)line;
- (NSString *)stringForRange:(NSRange)range;
- (NSAttributedString *)attributedStringForRange:(NSRange)range;
- (NSRect)boundsForRange:(NSRange)range;
- (NSRange)styleRangeForIndex:(NSInteger)index;

+ (AXElementHelper *)getApplicationAXObject;
+ (NSInteger)_numberFromValue:(id)value;
+ (BOOL)_boolFromValue:(id)value;
+ (NSRange)_rangeFromValue:(id)value;
+ (NSRect)_rectFromValue:(id)value;
+ (NSPoint)_pointFromValue:(id)value;
+ (NSSize)_sizeFromValue:(id)value;

@end
