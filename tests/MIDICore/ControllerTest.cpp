#include "MIDICore/Controller.hpp"
#include "MIDICore/PerNoteController.hpp"

#include <gtest/gtest.h>

#include <set>

namespace MIDICore {
namespace {

TEST(Controller, EveryNumberRoundTripsThroughItsCase) {
    auto all = Controller::allCases();
    std::set<std::string> names;
    for (int n = 0; n < 128; ++n) {
        Controller controller(UInt7::checked(n));
        EXPECT_EQ(controller.number(), n);
        EXPECT_EQ(all[n], controller);
        // Rebuild from the case and its payload, then compare numbers.
        Controller rebuilt = controller;
        switch (controller.kind()) {
            case Controller::Case::lsb: rebuilt = Controller::lsb(*controller.lsbValue()); break;
            case Controller::Case::mode: rebuilt = Controller::mode(*controller.modeValue()); break;
            case Controller::Case::undefined: rebuilt = Controller::undefined(*controller.undefinedValue()); break;
            default: break;
        }
        EXPECT_EQ(rebuilt.number(), n);
        EXPECT_FALSE(controller.name().empty());
    }
    int undefinedCount = 0;
    int lsbCount = 0;
    for (auto controller : all) {
        undefinedCount += controller.kind() == Controller::Case::undefined;
        lsbCount += controller.kind() == Controller::Case::lsb;
    }
    EXPECT_EQ(undefinedCount, 39);
    EXPECT_EQ(lsbCount, 32);
}

TEST(Controller, CasesAndIntegerComparison) {
    EXPECT_EQ(Controller(UInt7(120)).modeValue(), Controller::Mode::allSoundOff);
    EXPECT_EQ(Controller(UInt7(32)).lsbValue(), Controller::LSB::bankSelect);
    EXPECT_EQ(Controller(UInt7(3)).undefinedValue(), Controller::Undefined::cc3);
    auto lsb35 = Controller(UInt7(35)).lsbValue();
    ASSERT_TRUE(lsb35.has_value());
    EXPECT_EQ(lsb35->kind(), Controller::LSB::Case::undefined);
    EXPECT_EQ(lsb35->undefinedValue(), Controller::LSB::Undefined::cc3);
    EXPECT_EQ(Controller::LSB::controller(Controller::LSB::Undefined::cc31), 63);
    EXPECT_EQ(Controller::LSB::msb(Controller::LSB::Undefined::cc31), 31);
    EXPECT_EQ(Controller(UInt7(11)).kind(), Controller::Case::expression);
    EXPECT_EQ(Controller(UInt7(101)), Controller::rpnMSB);

    EXPECT_EQ(Controller::lsb(Controller::LSB::portamentoTime).number(), 37);
    EXPECT_TRUE(Controller::modWheel == 1);
    EXPECT_TRUE(7 == Controller::volume);
    EXPECT_FALSE(Controller::volume == 8u);
}

TEST(PerNoteController, RegisteredNumbersAndNames) {
    auto registered = PerNoteController::registered(PerNoteController::Registered::pitch7_25);
    EXPECT_EQ(registered.number(), 3);
    EXPECT_TRUE(registered.isRegistered());
    EXPECT_EQ(registered, PerNoteController::registered(std::uint8_t{3}));
    EXPECT_NE(registered, PerNoteController::assignable(3));
    EXPECT_EQ(PerNoteController::Registered(95).kind(), PerNoteController::Registered::Case::effects5Depth);
    EXPECT_EQ(PerNoteController::Registered(0).kind(), PerNoteController::Registered::Case::undefined);
    EXPECT_EQ(PerNoteController::Registered(200).name(), "Undefined Per-Note CC");
    int undefined = 0;
    for (int n = 0; n < 256; ++n) {
        undefined += PerNoteController::Registered(static_cast<std::uint8_t>(n)).kind() ==
                     PerNoteController::Registered::Case::undefined;
    }
    EXPECT_EQ(undefined, 234);
}

}  // namespace
}  // namespace MIDICore
