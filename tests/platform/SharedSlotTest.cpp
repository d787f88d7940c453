#include "platform/SharedSlot.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

struct Service {
    int id = 0;
};

TEST(SharedSlot, TheDefaultIsMadeOnceComesBackAfterNullptrAndGetOrMakeKeepsWhatIsThere) {
    int made = 0;
    auto make = [&] { return std::make_shared<Service>(Service{++made}); };
    SharedSlot<Service> slot(make);
    auto first = slot.get();
    EXPECT_EQ(slot.get(), first);
    EXPECT_EQ(slot.getOrMake([] { return std::make_shared<Service>(Service{100}); }), first);
    EXPECT_EQ(made, 1);

    auto replacement = std::make_shared<Service>(Service{100});
    slot.set(replacement);
    EXPECT_EQ(slot.get(), replacement);
    slot.set(nullptr);
    EXPECT_EQ(slot.get()->id, 2);
    EXPECT_EQ(made, 2);

    // Without a default the slot holds nothing until set, or until made once.
    SharedSlot<Service> empty;
    EXPECT_EQ(empty.get(), nullptr);
    empty.set(replacement);
    EXPECT_EQ(empty.take(), replacement);
    EXPECT_EQ(empty.get(), nullptr);
    auto madeHere = empty.getOrMake(make);
    EXPECT_EQ(empty.getOrMake(make), madeHere);
    EXPECT_EQ(made, 3);
}

}  // namespace
}  // namespace havrel
