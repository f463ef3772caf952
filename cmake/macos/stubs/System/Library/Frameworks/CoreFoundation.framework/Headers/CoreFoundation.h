/* As much of the framework as the agent uses; a Mac has the whole of it. */
#ifndef MSP_STUB_CORE_FOUNDATION_H
#define MSP_STUB_CORE_FOUNDATION_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef uint32_t UTF32Char;
typedef uint32_t CFStringEncoding;
typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef double CFTimeInterval;
typedef double CFAbsoluteTime;
typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;

typedef const void* CFTypeRef;
typedef const void* CFPropertyListRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef struct __CFString* CFMutableStringRef;
typedef const struct __CFArray* CFArrayRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __CFDate* CFDateRef;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFCharacterSet* CFCharacterSetRef;
typedef struct __CFError* CFErrorRef;
typedef CFIndex CFPropertyListFormat;
typedef CFIndex CFNumberType;
typedef CFIndex CFCharacterSetPredefinedSet;
typedef CFIndex CFStringNormalizationForm;

enum {
  kCFStringEncodingUTF8 = 0x08000100,
  kCFStringNormalizationFormC = 2,
  kCFPropertyListImmutable = 0,
  kCFNumberSInt64Type = 4,
  kCFCharacterSetAlphaNumeric = 10,
  kCFCharacterSetPunctuation = 11
};

extern const CFAllocatorRef kCFAllocatorDefault;
extern const CFTimeInterval kCFAbsoluteTimeIntervalSince1970;

void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);

CFTypeID CFArrayGetTypeID(void);
CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

CFTypeID CFDictionaryGetTypeID(void);
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values);

CFTypeID CFStringGetTypeID(void);
CFIndex CFStringGetLength(CFStringRef text);
CFIndex CFStringGetBytes(CFStringRef text, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* buffer, CFIndex bufferSize,
                         CFIndex* usedSize);
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);

CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex maximumLength, CFStringRef text);
void CFStringNormalize(CFMutableStringRef text, CFStringNormalizationForm form);

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);

CFTypeID CFDateGetTypeID(void);
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);

CFTypeID CFNumberGetTypeID(void);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data, CFOptionFlags options,
                                               CFPropertyListFormat* format, CFErrorRef* error);

CFCharacterSetRef CFCharacterSetGetPredefined(CFCharacterSetPredefinedSet set);
Boolean CFCharacterSetIsLongCharacterMember(CFCharacterSetRef set, UTF32Char character);

#ifdef __cplusplus
}
#endif
#endif
