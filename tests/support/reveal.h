// The tests' one way to private members: an explicit instantiation may name them.
//
//   KESTRANE_REVEAL(Block, kestrane::Owner, block_);  // at namespace scope
//   owner.*member(Block{})
#pragma once

#define KESTRANE_REVEAL(Tag, Class, name)                 \
  struct Tag {                                            \
    friend constexpr auto member(Tag);                    \
  };                                                      \
  template <auto kMember>                                 \
  struct Tag##Revealed {                                  \
    friend constexpr auto member(Tag) { return kMember; } \
  };                                                      \
  template struct Tag##Revealed<&Class::name>
