#pragma once

namespace host {

class ClassRegistry;

/// Makes the paint system known: CreateInstance with its class gives a target that answers
/// GetInterface(PAINTERINTERFACE_V7).
void RegisterPaintSystem(ClassRegistry& classes);

}  // namespace host
