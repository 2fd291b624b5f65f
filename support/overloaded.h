// One visitor out of several lambdas, for std::visit over a variant.
#pragma once

namespace ac {

template <class... Fs>
struct Overloaded : Fs... {
  using Fs::operator()...;
};
// Apple's clang 16 deduces no aggregate's template arguments by itself.
template <class... Fs>
Overloaded(Fs...) -> Overloaded<Fs...>;

}  // namespace ac
