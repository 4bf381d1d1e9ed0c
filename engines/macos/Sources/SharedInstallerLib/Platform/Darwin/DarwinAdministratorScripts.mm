// `AdministratorScripts` on NSAppleScript. The system keeps a granted authorization as long as the script
// object exists.
#import <Carbon/Carbon.h>
#import <Foundation/Foundation.h>
#include <cassert>
#include <nlohmann/json.hpp>

#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

ScriptErrorDictionary errorDictionary(NSDictionary* problem) {
  if (problem == nil) return std::nullopt;
  return json(problem);
}

// A command that isn't text can't be passed to a script; a conversion could make it another command.
ScriptErrorDictionary notText() {
  return Json{{"NSAppleScriptErrorMessage", "The command isn’t UTF-8 text."}};
}

// This process: {0, kCurrentProcess}.
NSAppleEventDescriptor* currentProcess() {
  const ProcessSerialNumber number{0, kCurrentProcess};
  return [[NSAppleEventDescriptor alloc] initWithDescriptorType:typeProcessSerialNumber
                                                          bytes:&number
                                                         length:sizeof number];
}

// The event that calls the handler `name` with one argument.
NSAppleEventDescriptor* subroutineEvent(NSAppleEventDescriptor* target, NSString* name, NSString* argument) {
  NSAppleEventDescriptor* event = [[NSAppleEventDescriptor alloc] initWithEventClass:kASAppleScriptSuite
                                                                             eventID:kASSubroutineEvent
                                                                    targetDescriptor:target
                                                                            returnID:kAutoGenerateReturnID
                                                                       transactionID:kAnyTransactionID];
  NSAppleEventDescriptor* arguments = [NSAppleEventDescriptor listDescriptor];
  [arguments insertDescriptor:[NSAppleEventDescriptor descriptorWithString:argument] atIndex:1];
  [event setParamDescriptor:[NSAppleEventDescriptor descriptorWithString:name]
                 forKeyword:keyASSubroutineName];
  [event setParamDescriptor:arguments forKeyword:keyDirectObject];
  return event;
}

class DarwinAdministratorScript final : public AdministratorScript {
 public:
  explicit DarwinAdministratorScript(NSAppleScript* script) : script_{script} {}

  Expected<ScriptErrorDictionary, EventFailure> callHandler(const std::string& name,
                                                            const std::string& argument) override {
    assert([NSThread isMainThread]);
    @autoreleasepool {
      NSString* handler = nsString(name);
      NSString* command = nsString(argument);
      if (handler == nil || command == nil) return notText();
      NSAppleEventDescriptor* target = currentProcess();
      if (target == nil) return std::unexpected(EventFailure::noTarget);
      NSDictionary* problem = nil;
      [script_ executeAppleEvent:subroutineEvent(target, handler, command) error:&problem];
      return errorDictionary(problem);
    }
  }

  ScriptErrorDictionary execute() override {
    assert([NSThread isMainThread]);
    @autoreleasepool {
      NSDictionary* problem = nil;
      [script_ executeAndReturnError:&problem];
      return errorDictionary(problem);
    }
  }

 private:
  NSAppleScript* script_;
};

class DarwinAdministratorScripts final : public AdministratorScripts {
 public:
  std::unique_ptr<AdministratorScript> make(const std::string& source) override {
    @autoreleasepool {
      NSString* text = nsString(source);
      NSAppleScript* script = text != nil ? [[NSAppleScript alloc] initWithSource:text] : nil;
      if (script == nil) return nullptr;
      return std::make_unique<DarwinAdministratorScript>(script);
    }
  }
};

}  // namespace

std::unique_ptr<AdministratorScripts> makeAdministratorScripts() {
  return std::make_unique<DarwinAdministratorScripts>();
}

}  // namespace installer::darwin
