#include "platform/SharedSlot.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

struct Service {
    int id = 0;
};

TEST(SharedSlot, TheDefaultIsMadeOnceAndComesBackAfterNullptr) {
    int made = 0;
    SharedSlot<Service> slot([&] { return std::make_shared<Service>(Service{++made}); });
    auto first = slot.get();
    EXPECT_EQ(slot.get(), first);
    EXPECT_EQ(made, 1);

    auto replacement = std::make_shared<Service>(Service{100});
    slot.set(replacement);
    EXPECT_EQ(slot.get(), replacement);

    slot.set(nullptr);
    EXPECT_EQ(slot.get()->id, 2);
    EXPECT_EQ(made, 2);
}

TEST(SharedSlot, ASlotWithoutADefaultHoldsNothingUntilSet) {
    SharedSlot<Service> slot;
    EXPECT_EQ(slot.get(), nullptr);
    auto set = std::make_shared<Service>();
    slot.set(set);
    EXPECT_EQ(slot.get(), set);
    EXPECT_EQ(slot.take(), set);
    EXPECT_EQ(slot.get(), nullptr);
    EXPECT_EQ(slot.take(), nullptr);
}

TEST(SharedSlot, GetOrMakeKeepsWhatIsThere) {
    SharedSlot<Service> empty;
    int made = 0;
    auto make = [&] { return std::make_shared<Service>(Service{++made}); };
    auto first = empty.getOrMake(make);
    EXPECT_EQ(empty.getOrMake(make), first);
    EXPECT_EQ(made, 1);

    // A slot with a default never needs the maker.
    SharedSlot<Service> withDefault([] { return std::make_shared<Service>(Service{7}); });
    EXPECT_EQ(withDefault.getOrMake(make)->id, 7);
    EXPECT_EQ(made, 1);
}

}  // namespace
}  // namespace havrel
