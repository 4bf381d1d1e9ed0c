// The classes, selectors, functions and constants of Foundation that the macOS host uses, and no others,
// declared in our own words. On a Mac the SDK's header is used instead.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#import <objc/NSObject.h>
#include <stdint.h>

@class NSArray<ObjectType>, NSData, NSDate, NSDictionary<KeyType, ObjectType>, NSError, NSFileHandle,
    NSHTTPURLResponse, NSMutableArray<ObjectType>, NSOperationQueue, NSString, NSURL, NSURLRequest,
    NSURLResponse, NSURLSession, NSURLSessionConfiguration, NSURLSessionDownloadTask, NSURLSessionTask,
    NSURLSessionDataTask;

typedef double NSTimeInterval;
typedef NSUInteger NSStringEncoding;
typedef NSUInteger NSDataWritingOptions;
typedef NSString* NSURLResourceKey;
typedef NSString* NSFileAttributeKey;

typedef struct {
  unsigned long state;
  __unsafe_unretained id* itemsPtr;
  unsigned long* mutationsPtr;
  unsigned long extra[5];
} NSFastEnumerationState;

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(__unsafe_unretained id*)buffer
                                    count:(NSUInteger)length;
@end

@protocol NSCopying
@end

enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject <NSCopying>
- (instancetype)initWithBytes:(const void*)bytes
                       length:(NSUInteger)length
                     encoding:(NSStringEncoding)encoding;
- (NSData*)dataUsingEncoding:(NSStringEncoding)encoding allowLossyConversion:(BOOL)lossy;
@end

@interface NSData : NSObject
+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length;
- (BOOL)writeToFile:(NSString*)path options:(NSDataWritingOptions)options error:(NSError**)error;
@property(readonly) NSUInteger length;
@property(readonly) const void* bytes;
@end

enum : NSDataWritingOptions { NSDataWritingAtomic = 1 };

@interface NSValue : NSObject
@end

@interface NSNumber : NSValue
@property(readonly) BOOL boolValue;
@property(readonly) double doubleValue;
@property(readonly) long long longLongValue;
@end

@interface NSDate : NSObject
@property(readonly) NSTimeInterval timeIntervalSince1970;
+ (instancetype)dateWithTimeIntervalSinceNow:(NSTimeInterval)seconds;
@end

@interface NSArray<ObjectType> : NSObject <NSFastEnumeration>
+ (instancetype)arrayWithObjects:(const ObjectType[])objects count:(NSUInteger)count;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
+ (instancetype)array;
- (void)addObject:(ObjectType)object;
@end

@interface NSDictionary<KeyType, ObjectType> : NSObject <NSFastEnumeration>
- (ObjectType)objectForKeyedSubscript:(KeyType)key;
@end

@interface NSError : NSObject
@property(readonly) NSString* domain;
@property(readonly) NSInteger code;
@property(readonly) NSDictionary* userInfo;
@property(readonly) NSString* localizedDescription;
@end

@interface NSURL : NSObject
+ (instancetype)fileURLWithPath:(NSString*)path;
+ (instancetype)URLWithString:(NSString*)string;
- (BOOL)getResourceValue:(id*)value forKey:(NSURLResourceKey)key error:(NSError**)error;
@property(readonly) NSString* absoluteString;
@property(readonly) NSString* host;
@property(readonly) NSString* path;
@end

extern NSURLResourceKey const NSURLTotalFileAllocatedSizeKey;
extern NSURLResourceKey const NSURLFileAllocatedSizeKey;
extern NSURLResourceKey const NSURLIsRegularFileKey;
extern NSURLResourceKey const NSURLIsDirectoryKey;
extern NSURLResourceKey const NSURLIsSymbolicLinkKey;
extern NSURLResourceKey const NSURLVolumeAvailableCapacityKey;

@interface NSEnumerator<ObjectType> : NSObject <NSFastEnumeration>
@end

@interface NSDirectoryEnumerator<ObjectType> : NSEnumerator <ObjectType>
- (void)skipDescendants;
@property(readonly) NSUInteger level;
@end

typedef NSUInteger NSDirectoryEnumerationOptions;
enum : NSDirectoryEnumerationOptions { NSDirectoryEnumerationSkipsHiddenFiles = 4 };

@interface NSFileManager : NSObject
@property(class, readonly) NSFileManager* defaultManager;
@property(readonly) NSURL* temporaryDirectory;
- (BOOL)fileExistsAtPath:(NSString*)path;
- (BOOL)fileExistsAtPath:(NSString*)path isDirectory:(BOOL*)isDirectory;
- (BOOL)isWritableFileAtPath:(NSString*)path;
- (BOOL)isExecutableFileAtPath:(NSString*)path;
- (NSArray<NSString*>*)contentsOfDirectoryAtPath:(NSString*)path error:(NSError**)error;
- (NSDictionary*)attributesOfItemAtPath:(NSString*)path error:(NSError**)error;
- (NSDictionary*)attributesOfFileSystemForPath:(NSString*)path error:(NSError**)error;
- (BOOL)copyItemAtPath:(NSString*)source toPath:(NSString*)destination error:(NSError**)error;
- (BOOL)removeItemAtPath:(NSString*)path error:(NSError**)error;
- (BOOL)createDirectoryAtPath:(NSString*)path
    withIntermediateDirectories:(BOOL)createIntermediates
                     attributes:(NSDictionary*)attributes
                          error:(NSError**)error;
- (NSDirectoryEnumerator<NSURL*>*)enumeratorAtURL:(NSURL*)url
                       includingPropertiesForKeys:(NSArray<NSURLResourceKey>*)keys
                                          options:(NSDirectoryEnumerationOptions)mask
                                     errorHandler:(BOOL (^)(NSURL* url, NSError* error))handler;
@end

extern NSFileAttributeKey const NSFileSize;
extern NSFileAttributeKey const NSFileSystemFreeSize;

@interface NSFileHandle : NSObject
@property(class, readonly) NSFileHandle* fileHandleWithNullDevice;
- (instancetype)initWithFileDescriptor:(int)descriptor closeOnDealloc:(BOOL)closes;
@property(readonly) int fileDescriptor;
- (NSData*)readDataUpToLength:(NSUInteger)length error:(NSError**)error;
- (NSData*)readDataToEndOfFileAndReturnError:(NSError**)error;
- (BOOL)closeAndReturnError:(NSError**)error;
@end

@interface NSPipe : NSObject
+ (NSPipe*)pipe;
@property(readonly) NSFileHandle* fileHandleForReading;
@property(readonly) NSFileHandle* fileHandleForWriting;
@end

typedef NSInteger NSTaskTerminationReason;
enum : NSTaskTerminationReason { NSTaskTerminationReasonUncaughtSignal = 2 };

@interface NSTask : NSObject
@property(copy) NSURL* executableURL;
@property(copy) NSArray<NSString*>* arguments;
@property(retain) id standardInput;
@property(retain) id standardOutput;
@property(retain) id standardError;
@property(readonly) int terminationStatus;
@property(readonly) NSTaskTerminationReason terminationReason;
@property(copy) void (^terminationHandler)(NSTask* task);
- (BOOL)launchAndReturnError:(NSError**)error;
@end

@interface NSBundle : NSObject
@property(class, readonly) NSBundle* mainBundle;
@property(readonly) NSURL* resourceURL;
@end

typedef NSUInteger NSPropertyListFormat;
enum : NSPropertyListFormat { NSPropertyListOpenStepFormat = 1, NSPropertyListXMLFormat_v1_0 = 100 };
typedef NSUInteger NSPropertyListMutabilityOptions;
typedef NSPropertyListMutabilityOptions NSPropertyListReadOptions;
enum : NSPropertyListMutabilityOptions { NSPropertyListImmutable = 0 };

@interface NSPropertyListSerialization : NSObject
+ (id)propertyListWithData:(NSData*)data
                   options:(NSPropertyListReadOptions)options
                    format:(NSPropertyListFormat*)format
                     error:(NSError**)error;
@end

@interface NSProcessInfo : NSObject
@property(class, readonly) NSProcessInfo* processInfo;
@property(readonly) NSString* operatingSystemVersionString;
@end

extern "C" NSString* NSHomeDirectory(void);

@interface NSRunLoop : NSObject
@property(class, readonly) NSRunLoop* mainRunLoop;
- (void)runUntilDate:(NSDate*)limitDate;
@end

@interface NSThread : NSObject
@property(class, readonly) BOOL isMainThread;
+ (void)detachNewThreadWithBlock:(void (^)(void))block;
+ (void)sleepForTimeInterval:(NSTimeInterval)seconds;
@end

@interface NSOperationQueue : NSObject
@property NSInteger maxConcurrentOperationCount;
- (void)addOperationWithBlock:(void (^)(void))block;
@end

typedef NSUInteger NSURLRequestCachePolicy;
enum : NSURLRequestCachePolicy {
  NSURLRequestUseProtocolCachePolicy = 0,
  NSURLRequestReloadIgnoringLocalCacheData = 1,
  NSURLRequestReloadIgnoringLocalAndRemoteCacheData = 4,
};

@interface NSURLRequest : NSObject
+ (instancetype)requestWithURL:(NSURL*)url
                   cachePolicy:(NSURLRequestCachePolicy)cachePolicy
               timeoutInterval:(NSTimeInterval)timeoutInterval;
@property(readonly, copy) NSURL* URL;
@property(readonly, copy) NSString* HTTPMethod;
@end

@interface NSMutableURLRequest : NSURLRequest
@property(copy) NSString* HTTPMethod;
@end

@interface NSURLResponse : NSObject
@property(readonly) NSURL* URL;
@end

@interface NSHTTPURLResponse : NSURLResponse
@property(readonly) NSInteger statusCode;
@end

@protocol NSURLSessionDelegate <NSObject>
@end

@protocol NSURLSessionTaskDelegate <NSURLSessionDelegate>
@optional
- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest*))completionHandler;
- (void)URLSession:(NSURLSession*)session task:(NSURLSessionTask*)task didCompleteWithError:(NSError*)error;
@end

@protocol NSURLSessionDataDelegate <NSURLSessionTaskDelegate>
@optional
- (void)URLSession:(NSURLSession*)session
          dataTask:(NSURLSessionDataTask*)dataTask
    didReceiveData:(NSData*)data;
@end

@protocol NSURLSessionDownloadDelegate <NSURLSessionTaskDelegate>
- (void)URLSession:(NSURLSession*)session
                 downloadTask:(NSURLSessionDownloadTask*)downloadTask
    didFinishDownloadingToURL:(NSURL*)location;
@optional
- (void)URLSession:(NSURLSession*)session
                 downloadTask:(NSURLSessionDownloadTask*)downloadTask
                 didWriteData:(int64_t)bytesWritten
            totalBytesWritten:(int64_t)totalBytesWritten
    totalBytesExpectedToWrite:(int64_t)totalBytesExpectedToWrite;
@end

@interface NSURLSessionTask : NSObject
@property(readonly) NSUInteger taskIdentifier;
@property(readonly, copy) NSURLResponse* response;
- (void)resume;
- (void)cancel;
@end

@interface NSURLSessionDataTask : NSURLSessionTask
@end

@interface NSURLSessionDownloadTask : NSURLSessionTask
@end

@interface NSURLSessionConfiguration : NSObject
@property(class, readonly) NSURLSessionConfiguration* defaultSessionConfiguration;
@end

@interface NSURLSession : NSObject
+ (NSURLSession*)sessionWithConfiguration:(NSURLSessionConfiguration*)configuration
                                 delegate:(id<NSURLSessionDelegate>)delegate
                            delegateQueue:(NSOperationQueue*)queue;
@property(readonly) NSOperationQueue* delegateQueue;
- (void)finishTasksAndInvalidate;
- (void)invalidateAndCancel;
- (NSURLSessionDataTask*)dataTaskWithRequest:(NSURLRequest*)request;
- (NSURLSessionDownloadTask*)downloadTaskWithURL:(NSURL*)url;
- (NSURLSessionDownloadTask*)downloadTaskWithResumeData:(NSData*)resumeData;
@end

extern NSString* const NSURLSessionDownloadTaskResumeData;

@interface NSAppleEventDescriptor : NSObject
- (instancetype)initWithDescriptorType:(uint32_t)descriptorType
                                 bytes:(const void*)bytes
                                length:(NSUInteger)byteCount;
- (instancetype)initWithEventClass:(uint32_t)eventClass
                           eventID:(uint32_t)eventID
                  targetDescriptor:(NSAppleEventDescriptor*)targetDescriptor
                          returnID:(int16_t)returnID
                     transactionID:(int32_t)transactionID;
+ (NSAppleEventDescriptor*)listDescriptor;
+ (NSAppleEventDescriptor*)descriptorWithString:(NSString*)string;
- (void)insertDescriptor:(NSAppleEventDescriptor*)descriptor atIndex:(NSInteger)index;
- (void)setParamDescriptor:(NSAppleEventDescriptor*)descriptor forKeyword:(uint32_t)keyword;
@end

@interface NSAppleScript : NSObject
- (instancetype)initWithSource:(NSString*)source;
- (NSAppleEventDescriptor*)executeAppleEvent:(NSAppleEventDescriptor*)event error:(NSDictionary**)errorInfo;
- (NSAppleEventDescriptor*)executeAndReturnError:(NSDictionary**)errorInfo;
@end

static inline const void* CFBridgingRetain(id object) {
  return (__bridge_retained const void*)object;
}
