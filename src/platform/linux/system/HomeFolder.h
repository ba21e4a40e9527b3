#pragma once

namespace skylet {

/// Where HOME is not set Qt would write to "/", and relative folders it would look for where the program happens to be.
/// Forgets those that are relative (XDG Base Directory Specification) and sets HOME to what the user database says, or,
/// where that knows nothing either, to a place where nothing can be written. To be called before anything asks for a
/// folder.
void ensureHome();

} // namespace skylet
