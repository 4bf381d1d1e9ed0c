// The classes and selectors of AppKit that the macOS host uses, declared in our own words.
#pragma once

#import <Foundation/Foundation.h>

@interface NSWorkspace : NSObject
@property(class, readonly) NSWorkspace* sharedWorkspace;
- (NSURL*)URLForApplicationWithBundleIdentifier:(NSString*)bundleIdentifier;
@end

@interface NSRunningApplication : NSObject
+ (NSArray<NSRunningApplication*>*)runningApplicationsWithBundleIdentifier:(NSString*)bundleIdentifier;
@property(readonly, copy) NSString* localizedName;
@property(readonly) int32_t processIdentifier;
- (BOOL)terminate;
- (BOOL)forceTerminate;
@end
