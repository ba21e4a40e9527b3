#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace skylet {

/// Ties callbacks to the life of the object that hands them out: a member of the owner, whose `guard` wraps a callable
/// so that it does nothing once the owner is gone. It never prolongs the owner's life, and a copy of the owner would
/// not share it. The owner must not be destroyed from inside one of its own guarded callbacks.
class Lifetime {
  public:
    Lifetime() = default;
    ~Lifetime() = default;
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;
    Lifetime(Lifetime&&) = delete;
    Lifetime& operator=(Lifetime&&) = delete;

    /// Wraps `action`, which may take any arguments and returns nothing. A later `reset` silences it as well.
    template <typename Action>
    [[nodiscard]] auto guard(Action action) const {
        return [ token = std::weak_ptr<const char>(token_), action = std::move(action) ](
            auto&&... arguments) mutable requires std::is_invocable_v<Action&, decltype(arguments)...> {
            if (!token.expired()) {
                action(std::forward<decltype(arguments)>(arguments)...);
            }
        };
    }

    /// Silences everything guarded so far, as if the owner had gone; what is guarded from now on works.
    void reset() { token_ = std::make_shared<const char>(); }

  private:
    std::shared_ptr<const char> token_ = std::make_shared<const char>();
};

} // namespace skylet
