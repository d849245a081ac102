// States which queue a function or a member belongs to. It is checked twice: clang rejects a call from elsewhere at
// compile time, and an assertion checks at run time. A role is not a queue: a printer has no queue before its device ID
// is decoded, and until then every thread has the role.
//
//     QueueRole commandQueueRole;
//     void assertOnCommandQueue() const ZUL_ASSERTS_ROLE(commandQueueRole);
//     void writeFrame() ZUL_REQUIRES_ROLE(commandQueueRole);
//     Handle _handle ZUL_GUARDED_BY_ROLE(commandQueueRole);
//
// The main queue has one role for the whole process, mainQueueRole.
//
// The analysis treats each lambda separately, so the first statement of a block for a queue is the assertion.
#pragma once

#include <mutex>

#if defined(__clang__) && !defined(ZUL_ANY_QUEUE) // tests take every role
#define ZUL_ROLE_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define ZUL_ROLE_ATTRIBUTE(attribute)
#endif

#define ZUL_REQUIRES_ROLE(role) ZUL_ROLE_ATTRIBUTE(requires_capability(role))
#define ZUL_GUARDED_BY_ROLE(role) ZUL_ROLE_ATTRIBUTE(guarded_by(role))
#define ZUL_ASSERTS_ROLE(role) ZUL_ROLE_ATTRIBUTE(assert_capability(role))

namespace zul {

/// Carries no data: the compiler's analysis needs an object to name the role by.
class ZUL_ROLE_ATTRIBUTE(capability("queue")) QueueRole {};

/// The role of the main queue; it has no state.
inline constinit QueueRole mainQueueRole;
/// The first statement of every block that is handed to the main queue, and of operations that use what belongs to it.
/// On another queue it ends a program with sanitizers; any other logs that once and continues, as ending in the middle
/// of a flash is worse. Any thread.
void assertOnMainQueue() ZUL_ASSERTS_ROLE(mainQueueRole);

/// What an assertion of a role does on a wrong queue; isLogged is the assertion's own. Any thread.
void reportWrongQueue(std::once_flag& isLogged, const char* text);

} // namespace zul
