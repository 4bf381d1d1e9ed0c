"""Our declarations agree with the SDK, and the check finds mistakes in them."""

import re

import pytest

import check_declarations
import headers

FOUNDATION = "packaging/macos/include/Foundation/Foundation.h"
APPKIT = "packaging/macos/include/AppKit/AppKit.h"
CORE_FOUNDATION = "packaging/macos/include/CoreFoundation/CoreFoundation.h"
CORE_SERVICES = "packaging/macos/include/CoreServices/CoreServices.h"
CARBON = "packaging/macos/include/Carbon/Carbon.h"
FOUNDATION_STUB = "packaging/macos/stubs/frameworks/Foundation.framework/Foundation.tbd"
CORE_FOUNDATION_STUB = "packaging/macos/stubs/frameworks/CoreFoundation.framework/CoreFoundation.tbd"
APPKIT_STUB = "packaging/macos/stubs/frameworks/AppKit.framework/AppKit.tbd"
UNLISTED = check_declarations.UNLISTED
UNSEEN = check_declarations.UNSEEN
SESSIONS = f"{check_declarations.PLATFORM}/Darwin/DarwinURLSessions.mm"
ERRORS = f"{check_declarations.LIBRARY}/Base/Error.h"
SCRIPT = f"{check_declarations.PLATFORM}/AdministratorScript.h"


def test_every_declaration_is_known_and_every_stub_is_a_true_home(description, seen):
    assert check_declarations.problems(check_declarations.files(), description, seen) == []


def test_the_reader_of_our_headers_finds_what_they_declare():
    texts = check_declarations.files()
    found = headers.read(check_declarations.part(texts, "packaging/macos/include", ".h")).found
    text = "\n".join(check_declarations.part(texts, "packaging/macos/include", ".h").values())
    counted = {
        "class": len(re.findall(r"^@interface", text, re.MULTILINE)),
        "protocol": len(re.findall(r"^@protocol", text, re.MULTILINE)),
        "member": len(re.findall(r"^(?:[-+] \(|@property)", text, re.MULTILINE)),
        "constant": len(re.findall(r"^extern [^(\n]*;", text, re.MULTILINE)),
        "typedef": len(re.findall(r"^typedef [^{\n]*;", text, re.MULTILINE)),
    }
    assert {kind: sum(each.kind == kind for each in found) for kind in counted} == counted


# file, text, replacement, message.
MISTAKES = [
    # Names.
    (FOUNDATION, "source toPath:(NSString*)destination error:(NSError**)error;\n- (BOOL)removeItem",
     "source toPth:(NSString*)destination error:(NSError**)error;\n- (BOOL)removeItem",
     "NSFileManager has no method copyItemAtPathToPthError; the nearest known name is copyItemAtPathToPathError"),
    (FOUNDATION, "+ (NSPipe*)pipe;", "+ (NSPipe*)pip;", "NSPipe has no class method pip; the nearest known name is pipe"),
    (FOUNDATION, "NSString* localizedDescription;", "NSString* localisedDescription;",
     "NSError has no property localisedDescription; the nearest known name is localizedDescription"),
    (FOUNDATION, "@interface NSFileManager", "@interface NSFileManger",
     "Foundation has no class NSFileManger; the nearest known name is NSFileManager"),
    (FOUNDATION, "@protocol NSURLSessionTaskDelegate", "@protocol NSURLSessionTaskDelegte",
     "Foundation has no protocol NSURLSessionTaskDelegte; the nearest known name is NSURLSessionTaskDelegate"),
    (FOUNDATION, "const NSURLIsDirectoryKey;", "const NSURLIsDirectoriesKey;",
     "Foundation has no constant NSURLIsDirectoriesKey; the nearest known name is NSURLIsDirectoryKey"),
    (FOUNDATION, "NSDirectoryEnumerationSkipsHiddenFiles = 4", "NSDirectoryEnumerationSkipHiddenFiles = 4",
     "Foundation has no enumerator NSDirectoryEnumerationSkipHiddenFiles; the nearest known name is "
     "NSDirectoryEnumerationSkipsHiddenFiles"),
    (FOUNDATION, "NSHomeDirectory(void)", "NSHomeDirectry(void)",
     "Foundation has no function NSHomeDirectry; the nearest known name is NSHomeDirectory"),
    (APPKIT, "- (BOOL)forceTerminate;", "- (BOOL)forceTerminat;",
     "NSRunningApplication has no method forceTerminat; the nearest known name is forceTerminate"),
    (CORE_FOUNDATION, "void CFRelease(", "void CFRelese(",
     "CoreFoundation has no function CFRelese; the nearest known name is CFRelease"),
    (CORE_SERVICES, "keyDirectObject = ", "keyDirectObjct = ",
     "CoreServices has no enumerator keyDirectObjct; the nearest known name is keyDirectObject"),
    (CARBON, "kASSubroutineEvent = ", "kASSubrutineEvent = ",
     "Carbon has no enumerator kASSubrutineEvent; the nearest known name is kASSubroutineEvent"),
    # Kinds.
    (FOUNDATION, "+ (NSPipe*)pipe;", "- (NSPipe*)pipe;", "pipe is a class method of NSPipe, not a method"),
    (FOUNDATION, "- (void)invalidateAndCancel;", "+ (void)invalidateAndCancel;",
     "invalidateAndCancel is a method of NSURLSession, not a class method"),
    (FOUNDATION, "void (^terminationHandler)(NSTask* task)", "void (^terminationHandler)(NSPipe* task)",
     "terminationHandler gives block(NSTask) -> void, not block(NSPipe) -> void"),
    (FOUNDATION, "@property(readonly) int terminationStatus;", "- (int)terminationStatus;",
     "terminationStatus is a property of NSTask, not a method"),
    (FOUNDATION, "- (void)invalidateAndCancel;", "@property(readonly) BOOL invalidateAndCancel;",
     "invalidateAndCancel is a method of NSURLSession, not a property"),
    (FOUNDATION, "@property(class, readonly) NSFileManager* defaultManager;",
     "@property(readonly) NSFileManager* defaultManager;",
     "defaultManager is a class property of NSFileManager, not a property"),
    (FOUNDATION, "@property(readonly) NSInteger statusCode;", "@property NSInteger statusCode;",
     "statusCode of NSHTTPURLResponse is readonly"),
    (FOUNDATION, "@protocol NSCopying\n@end", "@interface NSCopying : NSObject\n@end", "Foundation has no class NSCopying"),
    (FOUNDATION, "didFinishDownloadingToURL:(NSURL*)location;\n@optional",
     "didFinishDownloadingToURL:(NSURL*)location;",
     "URLSessionDownloadTaskDidWriteDataTotalBytesWrittenTotalBytesExpectedToWrite is optional in "
     "NSURLSessionDownloadDelegate"),
    # Arguments and results.
    (APPKIT, "- (BOOL)terminate;", "- (BOOL)terminate:(BOOL)force;", "terminate takes 0 arguments, not 1"),
    (CORE_SERVICES, "LSRegisterURL(CFURLRef inURL, Boolean inUpdate)", "LSRegisterURL(CFURLRef inURL)",
     "LSRegisterURL takes 2 arguments, not 1"),
    (CORE_SERVICES, "CFURLRef inURL, Boolean inUpdate", "Boolean inUpdate, CFURLRef inURL",
     "argument 1 of LSRegisterURL is object, not Boolean"),
    (FOUNDATION, "insertDescriptor:(NSAppleEventDescriptor*)descriptor atIndex:(NSInteger)index",
     "insertDescriptor:(NSAppleEventDescriptor*)descriptor atIndex:(NSString*)index",
     "argument 2 of insertDescriptorAtIndex is number, not string"),
    (FOUNDATION, "- (BOOL)isWritableFileAtPath:(NSString*)path", "- (BOOL)isWritableFileAtPath:(NSURL*)path",
     "argument 1 of isWritableFileAtPath is string, not NSURL"),
    (FOUNDATION, "- (NSDictionary*)attributesOfItemAtPath", "- (NSArray*)attributesOfItemAtPath",
     "attributesOfItemAtPathError gives NSDictionary, not NSArray"),
    (FOUNDATION, "@property(readonly) double doubleValue;", "@property(readonly) NSString* doubleValue;",
     "doubleValue gives number, not string"),
    (FOUNDATION, "options:(NSDirectoryEnumerationOptions)mask", "options:(NSUInteger)mask",
     "argument 3 of enumeratorAtURLIncludingPropertiesForKeysOptionsErrorHandler is NSDirectoryEnumerationOptions, "
     "not number"),
    (FOUNDATION, "(BOOL (^)(NSURL* url, NSError* error))handler", "(BOOL (^)(NSURL* url))handler",
     "argument 4 of enumeratorAtURLIncludingPropertiesForKeysOptionsErrorHandler is block(NSURL, NSError) -> boolean, "
     "not block(NSURL) -> boolean"),
    (FOUNDATION, "- (NSURLSessionDownloadTask*)downloadTaskWithURL", "- (NSURLSessionDataTask*)downloadTaskWithURL",
     "downloadTaskWithURL gives NSURLSessionDownloadTask, not NSURLSessionDataTask"),
    (FOUNDATION, "const NSURLSessionDownloadTaskResumeData;", "const NSURLSessionDownloadTaskResumeData;\n"
     "extern NSUInteger const NSURLErrorDomain;", "NSURLErrorDomain is a string, not a number"),
    # Families.
    (FOUNDATION, "@interface NSHTTPURLResponse : NSURLResponse", "@interface NSHTTPURLResponse : NSObject",
     "NSHTTPURLResponse inherits from NSURLResponse, not from NSObject"),
    (FOUNDATION, "@interface NSData : NSObject", "@interface NSData : NSObject <NSFastEnumeration>",
     "NSData doesn't adopt NSFastEnumeration"),
    (FOUNDATION, "@protocol NSURLSessionDelegate <NSObject>", "@protocol NSURLSessionDelegate <NSCopying>",
     "NSURLSessionDelegate doesn't adopt NSCopying"),
    (CORE_SERVICES, "  uint32_t highLongOfPSN;\n  uint32_t lowLongOfPSN;",
     "  uint32_t lowLongOfPSN;\n  uint32_t highLongOfPSN;",
     "the fields of ProcessSerialNumber are highLongOfPSN, lowLongOfPSN, not lowLongOfPSN, highLongOfPSN"),
    # Values and homes.
    (FOUNDATION, "NSTaskTerminationReasonUncaughtSignal = 2", "NSTaskTerminationReasonUncaughtSignal = 3",
     "NSTaskTerminationReasonUncaughtSignal is 2, not 3"),
    (FOUNDATION, "NSURLRequestReloadIgnoringLocalAndRemoteCacheData = 4",
     "NSURLRequestReloadIgnoringLocalAndRemoteCacheData", "NSURLRequestReloadIgnoringLocalAndRemoteCacheData is 4, not 2"),
    (FOUNDATION, "enum : NSDataWritingOptions {", "enum : NSStringEncoding {",
     "NSDataWritingAtomic belongs to NSDataWritingOptions, not to NSStringEncoding"),
    (CORE_SERVICES, "enum { keyDirectObject", "enum { keyASSubroutineName = 'snam', keyDirectObject",
     "keyASSubroutineName belongs to Carbon, not to CoreServices"),
    (FOUNDATION, "typedef double NSTimeInterval;", "typedef double NSTimeInterval;\ntypedef double NSSeconds;",
     "Foundation has no enumeration NSSeconds"),
    # unlisted.txt.
    (UNLISTED, "OSStatus ", "NSDataWritingOptions another\nOSStatus ",
     "NSDataWritingOptions is listed by the description after all"),
    (UNLISTED, "OSStatus ", "NSSeconds a number\nOSStatus ", "NSSeconds isn't declared any longer"),
    (UNLISTED, "OSStatus ", "# OSStatus ", "CoreServices has no enumeration OSStatus"),
    # The host's sources.
    (SESSIONS, "totalBytesExpectedToWrite:(int64_t)totalBytesExpectedToWrite {",
     "totalBytesExpectedToWritten:(int64_t)totalBytesExpectedToWrite {",
     "nothing that KELOSessionDelegate adopts declares URLSession:downloadTask:didWriteData:totalBytesWritten:"
     "totalBytesExpectedToWritten:; the nearest declared one is URLSession:downloadTask:didWriteData:"
     "totalBytesWritten:totalBytesExpectedToWrite:"),
    (SESSIONS, "@end\n\nnamespace", "- (void)run {\n  (void)@selector(cancl);\n}\n@end\n\nnamespace",
     "no selector cancl is declared; the nearest declared one is cancel"),
    (SESSIONS, "<NSURLSessionDataDelegate, NSURLSessionDownloadDelegate>", "<NSURLSessionDataDelegate>",
     "nothing that KELOSessionDelegate adopts declares URLSession:downloadTask:didFinishDownloadingToURL:"),
    (ERRORS, '"NSCocoaErrorDomain"', '"NSCocaErrorDomain"',
     "there is no constant of the value NSCocaErrorDomain; the nearest declared one is NSCocoaErrorDomain"),
    (SCRIPT, '= "NSAppleScriptErrorNumber"', '= "NSApplScriptErrorNumber"',
     "there is no constant of the value NSApplScriptErrorNumber; the nearest declared one is NSAppleScriptErrorNumber"),
    (APPKIT, "- (BOOL)terminate;", "- (BOOL)terminate;\n@property(readonly) NSURL* bundleURL;",
     "NSRunningApplication.bundleURL is declared and never used"),
    # The stubs.
    (FOUNDATION_STUB, "NSFileManager,", "NSFileManger,",
     "_OBJC_CLASS_$_NSFileManger is neither declared nor used; the nearest name is _OBJC_CLASS_$_NSFileManager"),
    (FOUNDATION_STUB, "_NSHomeDirectory,", "_NSHomeDirectry,",
     "_NSHomeDirectry is neither declared nor used; the nearest name is _NSHomeDirectory"),
    (FOUNDATION_STUB, "NSFileManager,", "", "no stub has _OBJC_CLASS_$_NSFileManager"),
    (FOUNDATION_STUB, "_NSFileSize,", "", "no stub has _NSFileSize"),
    (FOUNDATION_STUB, "NSURLSession,", "NSURLSession, NSURLSessionTask,", "_OBJC_CLASS_$_NSURLSessionTask is neither declared nor used"),
    # The libraries of symbols: reexported from CoreFoundation by Foundation, the reverse, and unrelated ones.
    (FOUNDATION_STUB, "NSPipe,", "NSPipe, NSRunLoop,", "_OBJC_CLASS_$_NSRunLoop is in CoreFoundation, not in Foundation"),
    (FOUNDATION_STUB, "_NSFileSize,", "_NSFileSize, _NSURLIsDirectoryKey,",
     "_NSURLIsDirectoryKey is in CoreFoundation, not in Foundation"),
    (FOUNDATION_STUB, "_NSFileSize,", "_NSFileSize, _NSURLIsRegularFileKey,",
     "_NSURLIsRegularFileKey is in CoreFoundation, not in Foundation"),
    (CORE_FOUNDATION_STUB, "NSArray,", "NSArray, NSTask,", "_OBJC_CLASS_$_NSTask is in Foundation, not in CoreFoundation"),
    (CORE_FOUNDATION_STUB, "_CFRelease,", "_CFRelease, _NSHomeDirectory,",
     "_NSHomeDirectory is in Foundation, not in CoreFoundation"),
    (APPKIT_STUB, "[ NSRunningApplication,", "[ NSRunningApplication, NSTask,",
     "_OBJC_CLASS_$_NSTask is in Foundation, not in AppKit"),
    (UNSEEN, "_LSRegisterURL ", "# _LSRegisterURL ", "no real executable uses _LSRegisterURL"),
    (UNSEEN, "_LSRegisterURL ", "_NSFileSize _NSHomeDirectory\n_LSRegisterURL ",
     "a real executable uses _NSFileSize"),
    (UNSEEN, "_LSRegisterURL ", "_NSFileSise _NSFileSize\n_LSRegisterURL ", "no stub has _NSFileSise"),
]


@pytest.mark.parametrize("path, old, new, said", MISTAKES, ids=[row[3][:70] for row in MISTAKES])
def test_a_mistake_is_found(description, seen, path, old, new, said):
    texts = check_declarations.files()
    assert texts[path].count(old) == 1, f"{old!r} doesn't occur once in {path}"
    texts[path] = texts[path].replace(old, new)
    found = check_declarations.problems(texts, description, seen)
    assert any(re.fullmatch(rf"[\w/+.]+:\d+: {re.escape(said)}(; the nearest .*)?", line) for line in found), found


@pytest.mark.parametrize("text", [
    "@interface NSFileManager (More)\n@end\n",
    "@interface NSFileManager : NSObject\n- (Unknown)contents;\n@end\n",
    "@interface NSFileManager : NSObject\n@dynamic contents;\n@end\n",
    "@interface NSFileManager : NSObject\n",
])
def test_what_is_not_understood_is_an_error(text):
    found = headers.read({"include/Foundation/Foundation.h": "#import <objc/NSObject.h>\n@class NSFileManager;\n" + text})
    assert found.errors and all(re.match(r"[\w/.]+:\d+: .", each) for each in found.errors)
