#include "runtime/Runtime.h"

#include <Block.h>
#include <gtest/gtest.h>
#include <objc/message.h>
#include <objc/runtime.h>

#include <cstdint>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

extern "C" {

// What the compiler lays out for each source file and class. GNU's runtime reads the front part of
// both.
struct Instance {
  const char* name;
  const char* type;
  int offset;
};

struct Instances {
  int count;
  Instance first[1];
};

struct ProtocolLayout;

struct Protocols {
  Protocols* next;
  long count;
  ProtocolLayout* first[1];
};

struct ProtocolLayout {
  std::uintptr_t version;  // until it is loaded
  const char* name;
  Protocols* inherited;
};

struct CategoryLayout {
  const char* name;
  const char* className;
  void* methods[2];
  Protocols* protocols;
};

struct ClassLayout {
  void* isa;
  const char* superclassName;
  const char* name;
  long version;
  unsigned long info;
  long instanceSize;  // negative: without what the superclass needs
  Instances* instances;
  void* methods;
  void* filledIn[3];
  Protocols* protocols;
  void* collected;
  long abiVersion;
  int** offsets;
};

struct Symbols {
  long selectorCount;
  void* selectors;
  unsigned short classCount;
  unsigned short categoryCount;
  void* definitions[1];  // the classes, then the rest
};

struct Module {
  long version;
  long size;
  const char* name;
  Symbols* symbols;
};

struct Slot {
  Class owner;
  Class cachedFor;
  const char* types;
  int version;
  IMP method;
};

extern void* _NSConcreteGlobalBlock[];
extern void* _NSConcreteMallocBlock[];
extern void* _NSConcreteStackBlock[];
void __real___objc_exec_class(Module*);
void* objc_autoreleasePoolPush();
void objc_autoreleasePoolPop(void* pool);
}

namespace {

const std::thread::id mainThread = std::this_thread::get_id();

std::vector<Module*>& modules() {
  static std::vector<Module*> all;
  return all;
}

std::unordered_map<std::string, ClassLayout*>& ownClasses() {
  static std::unordered_map<std::string, ClassLayout*> all;
  return all;
}

// Instances are laid out without their superclass's part, which may come from a library; a runtime
// with this ABI adds it when it loads the class.
void layOut(ClassLayout* made) {
  if (made->instanceSize > 0) return;
  long inherited = 0;
  if (const auto own = ownClasses().find(made->superclassName); own != ownClasses().end()) {
    layOut(own->second);
    inherited = own->second->instanceSize;
  } else {
    inherited = static_cast<long>(class_getInstanceSize(objc_getClass(made->superclassName)));
  }
  constexpr long alignment = 16;
  inherited = (inherited + alignment - 1) / alignment * alignment;
  for (int i = 0; made->instances != nullptr && i < made->instances->count; i++) {
    made->instances->first[i].offset += static_cast<int>(inherited);
    *made->offsets[i] = made->instances->first[i].offset;
  }
  made->instanceSize = inherited - made->instanceSize;
}

// The two versions differ only in what follows at a protocol's end.
void lowerVersions(Protocols* protocols) {
  constexpr std::uintptr_t compilersVersion = 3;
  constexpr std::uintptr_t gnuVersion = 2;
  for (; protocols != nullptr; protocols = protocols->next)
    for (long i = 0; i < protocols->count; i++) {
      ProtocolLayout* each = protocols->first[i];
      if (each->version != compilersVersion) continue;
      each->version = gnuVersion;
      lowerVersions(each->inherited);
    }
}

struct State {
  std::recursive_mutex mutex;
  std::unordered_map<id, std::set<id*>> weakReferences;
  std::unordered_map<id, Class> living;
  std::unordered_set<Class> mainThreadOnly;
  std::set<Class> own;
  IMP alloc = nullptr;
  IMP dealloc = nullptr;
};

State& state() {
  static State& only = *new State;  // objects may go after every static
  return only;
}

using Lock = std::lock_guard<std::recursive_mutex>;

bool isBlock(id object) {
  const void* isa = *reinterpret_cast<void**>(object);
  return isa == _NSConcreteMallocBlock || isa == _NSConcreteStackBlock ||
         isa == _NSConcreteGlobalBlock;
}

id send(id receiver, SEL selector) {
  return objc_msg_lookup(receiver, selector)(receiver, selector);
}

std::string describe(id receiver, SEL selector) {
  const Class itsClass = object_getClass(receiver);
  return std::string(class_isMetaClass(itsClass) ? "+[" : "-[") + class_getName(itsClass) + " " +
         sel_getName(selector) + "]";
}

bool isMainThreadOnly(Class itsClass) {
  for (; itsClass != Nil; itsClass = class_getSuperclass(itsClass))
    if (state().mainThreadOnly.contains(itsClass)) return true;
  return false;
}

// A method hands its result over to the caller, who takes it before anything else happens; only if
// the caller does not know of this is it left to the pool.
thread_local id handedOver = nil;

void leaveToPool() {
  if (handedOver == nil) return;
  const id object = handedOver;
  handedOver = nil;
  send(object, sel_registerName("autorelease"));
}

// Every message that this program's own code sends passes here.
void check(id receiver, SEL selector) {
  leaveToPool();
  // A thread gets a pool for its lifetime, as it does from Apple's runtime; its end drains it.
  if (!runtime::isMainThread()) [[maybe_unused]]
    static thread_local void* const pool = objc_autoreleasePoolPush();
  if (receiver == nil) return;
  const Class itsClass = object_getClass(receiver);
  if (!class_respondsToSelector(itsClass, selector))
    runtime::violation("Unknown selector: " + describe(receiver, selector));
  if (!runtime::isMainThread() && !class_isMetaClass(itsClass)) {
    const Lock lock(state().mutex);
    if (isMainThreadOnly(itsClass))
      runtime::violation("Off the main thread: " + describe(receiver, selector));
  }
}

id allocCounted(id self, SEL selector, void* zone) {
  using Alloc = id (*)(id, SEL, void*);
  const id made = reinterpret_cast<Alloc>(state().alloc)(self, selector, zone);
  const Lock lock(state().mutex);
  if (state().own.contains(object_getClass(made))) state().living[made] = object_getClass(made);
  return made;
}

id deallocCounted(id self, SEL selector) {
  {
    const Lock lock(state().mutex);
    if (!runtime::isMainThread() && isMainThreadOnly(object_getClass(self)))
      runtime::violation("Off the main thread: " + describe(self, selector));
    if (const auto found = state().weakReferences.find(self);
        found != state().weakReferences.end()) {
      for (id* reference : found->second) *reference = nil;
      state().weakReferences.erase(found);
    }
    state().living.erase(self);
  }
  return state().dealloc(self, selector);
}

void forget(id* reference) {
  if (*reference != nil) state().weakReferences[*reference].erase(reference);
  *reference = nil;
}

}  // namespace

namespace runtime {

void start() {
  for (Module* module : modules())
    for (int i = 0; i < module->symbols->classCount; i++) {
      auto* made = static_cast<ClassLayout*>(module->symbols->definitions[i]);
      ownClasses()[made->name] = made;
    }
  for (const auto& [name, made] : ownClasses()) {
    layOut(made);
    lowerVersions(made->protocols);
  }
  for (Module* module : modules())
    for (int i = 0; i < module->symbols->categoryCount; i++)
      lowerVersions(static_cast<CategoryLayout*>(
                        module->symbols->definitions[module->symbols->classCount + i])
                        ->protocols);
  for (Module* module : modules()) __real___objc_exec_class(module);
  for (const auto& [name, made] : ownClasses()) state().own.insert(objc_getClass(name.c_str()));

  const Class root = objc_getClass("NSObject");
  using Function = IMP;
  state().alloc =
      method_setImplementation(class_getClassMethod(root, sel_registerName("allocWithZone:")),
                               reinterpret_cast<Function>(allocCounted));
  state().dealloc =
      method_setImplementation(class_getInstanceMethod(root, sel_registerName("dealloc")),
                               reinterpret_cast<Function>(deallocCounted));
}

void violation(const std::string& what) {
  ADD_FAILURE() << what;
}

void requireMainThread(const std::string& className) {
  const Lock lock(state().mutex);
  state().mainThreadOnly.insert(objc_getClass(className.c_str()));
}

bool isMainThread() {
  return std::this_thread::get_id() == mainThread;
}

std::map<std::string, int> livingInstances() {
  const Lock lock(state().mutex);
  std::map<std::string, int> counts;
  for (const auto& [object, itsClass] : state().living) counts[class_getName(itsClass)]++;
  return counts;
}

}  // namespace runtime

// What the compiler calls, under the names that it uses.
extern "C" {

void __wrap___objc_exec_class(Module* compiled) {
  constexpr long gnuVersion = 8;
  modules().push_back(new Module{gnuVersion, sizeof(Module), compiled->name, compiled->symbols});
}

Slot* objc_msg_lookup_sender(id* receiver, SEL selector, id /*sender*/) {
  static thread_local Slot slot;
  check(*receiver, selector);
  slot.method = objc_msg_lookup(*receiver, selector);
  return &slot;
}

Slot* objc_slot_lookup_super(objc_super* super, SEL selector) {
  static thread_local Slot slot;
  slot.method = objc_msg_lookup_super(super, selector);
  return &slot;
}

Class objc_lookup_class(const char* name) {
  return objc_getClass(name);
}

id objc_retainBlock(id block) {
  return block == nil ? nil : static_cast<id>(_Block_copy(block));
}

id objc_retain(id object) {
  if (object == nil) return nil;
  return isBlock(object) ? objc_retainBlock(object) : send(object, sel_registerName("retain"));
}

void objc_release(id object) {
  if (object == nil) return;
  if (isBlock(object))
    _Block_release(object);
  else
    send(object, sel_registerName("release"));
}

id objc_autorelease(id object) {
  // A block is no object for GNUstep's pools; one that is returned to a caller lives on.
  return object == nil || isBlock(object) ? object : send(object, sel_registerName("autorelease"));
}

id objc_retainAutorelease(id object) {
  return objc_autorelease(objc_retain(object));
}

id objc_autoreleaseReturnValue(id object) {
  if (object == nil || isBlock(object)) return object;
  leaveToPool();
  handedOver = object;
  return object;
}

id objc_retainAutoreleaseReturnValue(id object) {
  return objc_autoreleaseReturnValue(objc_retain(object));
}

id objc_retainAutoreleasedReturnValue(id object) {
  if (object == nil || handedOver != object) return objc_retain(object);
  handedOver = nil;
  return object;
}

void objc_storeStrong(id* place, id object) {
  const id old = *place;
  *place = objc_retain(object);
  objc_release(old);
}

void* objc_autoreleasePoolPush() {
  leaveToPool();
  const id pools = reinterpret_cast<id>(objc_getClass("NSAutoreleasePool"));
  return send(send(pools, sel_registerName("alloc")), sel_registerName("init"));
}

void objc_autoreleasePoolPop(void* pool) {
  leaveToPool();
  send(static_cast<id>(pool), sel_registerName("drain"));
}

id objc_storeWeak(id* place, id object) {
  const Lock lock(state().mutex);
  forget(place);
  *place = object;
  if (object != nil) state().weakReferences[object].insert(place);
  return object;
}

id objc_initWeak(id* place, id object) {
  *place = nil;
  return objc_storeWeak(place, object);
}

void objc_destroyWeak(id* place) {
  const Lock lock(state().mutex);
  forget(place);
}

id objc_loadWeakRetained(id* place) {
  const Lock lock(state().mutex);
  return objc_retain(*place);
}

void objc_copyWeak(id* to, id* from) {
  const Lock lock(state().mutex);
  objc_initWeak(to, *from);
}

void objc_moveWeak(id* to, id* from) {
  objc_copyWeak(to, from);
  objc_destroyWeak(from);
}

int __gxx_personality_v0();
}

// Objective-C++ without @catch needs no other personality than C++'s own.
__asm__(
    ".globl __gnustep_objcxx_personality_v0\n"
    "__gnustep_objcxx_personality_v0: jmp __gxx_personality_v0@PLT\n");
