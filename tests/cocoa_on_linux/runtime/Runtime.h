#pragma once

#include <map>
#include <string>

/// Automatic reference counting on GNU's Objective-C runtime, which knows nothing of it. The
/// compiler emits code for another runtime, whose calls are carried out here; so ownership is what
/// it is on a Mac: an object goes with its last owner, and weak references to it become nil.
namespace runtime {

/// Registers all classes of this program. Before any Objective-C is run.
void start();

/// A test fails here, whatever thread this is called on.
void violation(const std::string& what);

/// From now on a message to an instance of this class or of one below it, sent off the main thread,
/// is a violation; and so is its end there.
void requireMainThread(const std::string& className);

bool isMainThread();

/// The living instances of the classes that this program defines, counted by class.
std::map<std::string, int> livingInstances();

}  // namespace runtime
