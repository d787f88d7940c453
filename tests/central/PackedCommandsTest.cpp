#include "central/HVBluetoothRangeCommand.hpp"
#include "central/HVEncodedRangeCommand.hpp"
#include "central/HVMidiCommand.hpp"
#include "central/RNBluetoothMIDICommand.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "platform/Log.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace havrel {
namespace {

HVEncodedRangeValue rangeValue(std::uint64_t wrapper, std::uint8_t axis, double position, std::uint8_t state = 0) {
    return HVEncodedRangeValue::rangeValueWithDataWraperID(wrapper, axis, position, state);
}

Bytes encode(const std::vector<HVEncodedRangeValue>& values) {
    auto bytes = HVEncodedRangeCommand::rangeCommandWithRangeValues(values).data();
    EXPECT_TRUE(bytes.has_value());
    return bytes.value_or(Bytes{});
}

TEST(EncodedRangeCommand, QuantisesToNinthsOfFiveElevenIncludingTheFloatNarrowing) {
    // 1.0 is high 1, low 255; 0.0 is 0, 0; 0.5 arrives as 255/511.
    EXPECT_EQ(encode({rangeValue(0, 0, 1.0)}), (Bytes{1, 1, 0, 0x80, 255}));
    EXPECT_EQ(encode({rangeValue(0, 0, 0.0)}), (Bytes{1, 1, 0, 0, 0}));
    auto half = HVEncodedRangeCommand::initWithData(encode({rangeValue(0, 0, 0.5)}));
    ASSERT_TRUE(half);
    EXPECT_EQ(half->rangeValues.at(0).rangeValue, 255 / 511.0);

    // A product with 511 just below 256 becomes 1.0 in the 32-bit step: high 1, low 255.
    const double belowHalfway = std::nextafter(256.0 / 511.0, 0.0);
    ASSERT_LT(belowHalfway * 511.0, 256.0);
    EXPECT_EQ(encode({rangeValue(0, 0, belowHalfway)}), (Bytes{1, 1, 0, 0x80, 255}));
    auto narrowed = HVEncodedRangeCommand::initWithData(encode({rangeValue(0, 0, belowHalfway)}));
    ASSERT_TRUE(narrowed);
    EXPECT_EQ(narrowed->rangeValues.at(0).rangeValue, 1.0);
    // Further below, the float keeps it under 1: high 0.
    EXPECT_EQ(encode({rangeValue(0, 0, 255.5 / 511.0)}), (Bytes{1, 1, 0, 0, 255}));

    // Above 1.0 the ninth bit (2) is shifted out of the byte and low wraps: 1.5 * 511 = 766.5.
    EXPECT_EQ(encode({rangeValue(0, 0, 1.5)}), (Bytes{1, 1, 0, 0, 254}));

    // Every k / 511 comes back as itself.
    for (int k = 0; k <= 511; ++k) {
        auto decoded = HVEncodedRangeCommand::initWithData(encode({rangeValue(5, 2, k / 511.0)}));
        ASSERT_TRUE(decoded);
        ASSERT_EQ(decoded->rangeValues.at(0).rangeValue, k / 511.0) << k;
    }
}

TEST(EncodedRangeCommand, PacksWrapperAxisAndStateIntoTenThreeAndTwoBits) {
    // Wrapper 1024 loses its eleventh bit; axis 9 is written as 7; state keeps two bits.
    EXPECT_EQ(encode({rangeValue(1024, 9, 0.0, 5)}), (Bytes{1, 1, 0, 0x74, 0}));
    EXPECT_EQ(encode({rangeValue(1023, 3, 0.0, 2)}), (Bytes{1, 1, 0xFF, 0x3B, 0}));

    auto decoded = HVEncodedRangeCommand::initWithData(Bytes{1, 1, 2, 0x94, 0x50});
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->rangeValues.size(), 1u);
    EXPECT_EQ(decoded->commandType, 1);
    EXPECT_EQ(decoded->rangeValues[0], rangeValue(8, 1, (256 + 0x50) / 511.0, 1));

    // Only bits 0-2 of the first byte are kept.
    auto typed = HVEncodedRangeCommand::initWithData(Bytes{0xFE, 0});
    ASSERT_TRUE(typed);
    EXPECT_EQ(typed->commandType, 6);
    EXPECT_TRUE(typed->rangeValues.empty());
}

TEST(EncodedRangeCommand, WriterRefusesEmptyAndOversizedCommands) {
    ScopedLogCapture capture;
    EXPECT_FALSE(HVEncodedRangeCommand().data());
    std::vector<HVEncodedRangeValue> seventeen(17, rangeValue(1, 0, 0.25));
    EXPECT_FALSE(HVEncodedRangeCommand::rangeCommandWithRangeValues(seventeen).data());
    EXPECT_EQ(capture.lines(), (std::vector<std::string>{"error, a MIDI command can't be empty",
                                                         "error, a MIDI command can't contain more than 16 values"}));
    seventeen.pop_back();
    auto sixteen = HVEncodedRangeCommand::rangeCommandWithRangeValues(seventeen).data();
    ASSERT_TRUE(sixteen);
    EXPECT_EQ(sixteen->size(), 50u);
}

TEST(EncodedRangeCommand, ShortBuffersYieldTheWholeEntriesThatFit) {
    ScopedLogCapture capture;
    EXPECT_FALSE(HVEncodedRangeCommand::initWithData(Bytes{}));
    EXPECT_FALSE(HVEncodedRangeCommand::initWithData(Bytes{1}));
    EXPECT_EQ(capture.count("HVEncodedRangeCommand: "), 2u);
    capture.clear();

    // Three announced, one and two thirds present.
    auto partial = HVEncodedRangeCommand::initWithData(Bytes{1, 3, 2, 0x94, 0x50, 7, 0x10});
    ASSERT_TRUE(partial);
    ASSERT_EQ(partial->rangeValues.size(), 1u);
    EXPECT_EQ(partial->rangeValues[0].dataWrapperID, 8u);
    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{"HVEncodedRangeCommand: n=3 but only 1 entries in 7 bytes"}));

    // 255 announced in a buffer of 2 gives an empty command; surplus bytes are not read.
    capture.clear();
    auto empty = HVEncodedRangeCommand::initWithData(Bytes{1, 255});
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->rangeValues.empty());
    EXPECT_EQ(capture.lines().size(), 1u);
    auto surplus = HVEncodedRangeCommand::initWithData(Bytes{1, 1, 0, 0, 0, 9, 9, 9});
    ASSERT_TRUE(surplus);
    EXPECT_EQ(surplus->rangeValues.size(), 1u);
}

TEST(BluetoothRangeCommand, OneScreenPerCommandAndFourBitAxes) {
    auto values = std::vector<HVBluetoothRangeValue>{
        HVBluetoothRangeValue::rangeValueWithComponentID(12, 3, 9, 1.0),
        HVBluetoothRangeValue::rangeValueWithComponentID(13, 5, 20, 0.25)};
    auto bytes = HVBluetoothRangeCommand::rangeCommandWithRangeValues(values).data();
    ASSERT_TRUE(bytes);
    // 0.25 * 511 = 127.75: high 0, low 127.
    EXPECT_EQ(*bytes, (Bytes{24, 2, 12, 0x49, 255, 13, 15, 127}));

    auto decoded = HVBluetoothRangeCommand::initWithData(*bytes);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->rangeValues.size(), 2u);
    EXPECT_EQ(decoded->rangeValues[0], HVBluetoothRangeValue::rangeValueWithComponentID(12, 3, 9, 1.0));
    // The second value takes the command's screen, and its axis was capped at 15.
    EXPECT_EQ(decoded->rangeValues[1], HVBluetoothRangeValue::rangeValueWithComponentID(13, 3, 15, 127 / 511.0));

    // Screen 32 times 8 is cut to 8 bits; bits 4-5 of an entry are ignored on reading.
    auto wide = HVBluetoothRangeCommand::initWithData(Bytes{0x05, 1, 1, 0xB2, 3});
    ASSERT_TRUE(wide);
    EXPECT_EQ(wide->commandType, 5);
    EXPECT_EQ(wide->rangeValues.at(0), HVBluetoothRangeValue::rangeValueWithComponentID(1, 0, 2, (512 + 3) / 511.0));
    auto cut = HVBluetoothRangeCommand::rangeCommandWithRangeValues(
                   {HVBluetoothRangeValue::rangeValueWithComponentID(0, 32, 0, 0.0)})
                   .data();
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->at(0), 0);

    ScopedLogCapture capture;
    EXPECT_FALSE(HVBluetoothRangeCommand().data());
    EXPECT_TRUE(capture.contains("error, a MIDI command can't be empty"));
    auto partial = HVBluetoothRangeCommand::initWithData(Bytes{8, 4, 1, 0, 0, 2});
    ASSERT_TRUE(partial);
    EXPECT_EQ(partial->rangeValues.size(), 1u);
    EXPECT_TRUE(capture.contains("HVBluetoothRangeCommand: n=4 but only 1 entries in 6 bytes"));
}

TEST(BluetoothMIDICommand, AddressesAndTheFourValueBody) {
    EXPECT_FALSE(RNBluetoothMIDIValue::MIDIValueForScreenID(1, 255, 10));
    EXPECT_FALSE(RNBluetoothMIDIValue::MIDIValueForScreenID(255, 1, 10));
    auto second = RNBluetoothMIDIValue::MIDIValueForScreenID(2, 7, 100, true);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->rawMidiValue(), 0xE4);
    EXPECT_EQ(second->description(), "screenId: 2, componentID: 7, midiValue: 100, isSecondValue: 1");

    auto first = *RNBluetoothMIDIValue::MIDIValueForScreenID(2, 5, 64);
    auto bytes = RNBluetoothMIDICommand::MIDICommandWithMIDIValues({first, *second}).data();
    ASSERT_TRUE(bytes);
    // Header: screen 2 in bits 3-5, n - 1 = 1 in bits 6-7; components first, then MIDI bytes.
    EXPECT_EQ(*bytes, (Bytes{0x50, 5, 7, 64, 0xE4}));
    auto decoded = RNBluetoothMIDICommand::initWithData(*bytes);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->midiValues, (std::vector<RNBluetoothMIDIValue>{first, *second}));

    // Four values: the header says four, the eight body bytes stay unwritten.
    auto four = RNBluetoothMIDICommand::MIDICommandWithMIDIValues({first, first, first, first}).data();
    ASSERT_TRUE(four);
    EXPECT_EQ(*four, (Bytes{0xD0, 0, 0, 0, 0, 0, 0, 0, 0}));
    auto readFour = RNBluetoothMIDICommand::initWithData(*four);
    ASSERT_TRUE(readFour);
    EXPECT_EQ(readFour->midiValues.size(), 4u);
    EXPECT_EQ(readFour->midiValues[3].screenID, 2);

    ScopedLogCapture capture;
    EXPECT_FALSE(RNBluetoothMIDICommand::MIDICommandWithMIDIValues({first, first, first, first, first}).data());
    EXPECT_FALSE(RNBluetoothMIDICommand().data());
    EXPECT_FALSE(RNBluetoothMIDICommand::initWithData(Bytes{}));
    // Three announced (0x80), five bytes: values 0 and 1 have components at 1, 2 and MIDI at 4.
    auto partial = RNBluetoothMIDICommand::initWithData(Bytes{0x80, 1, 2, 3, 0x81});
    ASSERT_TRUE(partial);
    ASSERT_EQ(partial->midiValues.size(), 1u);
    EXPECT_EQ(partial->midiValues[0].componentID, 1);
    EXPECT_TRUE(partial->midiValues[0].isSecondMIDIValue);
    EXPECT_EQ(partial->midiValues[0].midiValue1, 1);
    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{"error, a MIDI command can't contain more than 4 values",
                                        "error, a MIDI command can't be empty",
                                        "RNBluetoothMIDICommand: 0 bytes is too short, 1 needed",
                                        "RNBluetoothMIDICommand: n=3 but only 1 entries in 5 bytes"}));
}

TEST(BluetoothMIDICommandPure, StatusFlipIsAsymmetric) {
    auto received = RNBluetoothMIDICommandPure::initWithData(Bytes{0x10, 60, 100, 0xAA});
    ASSERT_TRUE(received);
    EXPECT_EQ(received->status, 0x90);
    EXPECT_EQ(received->data1, 60);
    EXPECT_EQ(received->data2, 100);

    // Built for sending, the field already holds the wire form; 8 bits of the argument remain.
    auto sent = RNBluetoothMIDICommandPure::MIDICommandWithStatus(0x190, 60, 100);
    EXPECT_EQ(sent.status, 0x10);
    EXPECT_EQ(sent.data(), (Bytes{0x10, 60, 100}));
    EXPECT_EQ(RNBluetoothMIDICommandPure::MIDICommandWithStatus(-1, 0, 0).status, 0x7F);

    ScopedLogCapture capture;
    EXPECT_FALSE(RNBluetoothMIDICommandPure::initWithData(Bytes{0x10, 60}));
    EXPECT_EQ(capture.lines(), (std::vector<std::string>{"RNBluetoothMIDICommandPure: 2 bytes is too short, 3 needed"}));
}

TEST(MidiCommand, LengthsFollowTheFlags) {
    auto plain = HVMidiCommand::midiCommandWithCommandType(1, 2, 7, 100);
    EXPECT_EQ(plain.data(), (Bytes{1, 2, 7, 100, 0}));

    // The pitch-bend constructor leaves the flags clear, so the parameters stay behind.
    auto bend = HVMidiCommand::midiCommandWithPitchbendLSB(0x10, 0x40);
    EXPECT_EQ(bend.data()->size(), 5u);
    bend.additionalContent = HVMidiCommand::kHasParameters;
    EXPECT_EQ(bend.data(), (Bytes{6, 0, 0, 0, 2, 0x10, 0x40}));

    bend.additionalContent = HVMidiCommand::kHasParameters | HVMidiCommand::kHasTime;
    bend.midiTime = 1.5;
    bend.timestamp = 99.0;
    auto full = bend.data();
    ASSERT_TRUE(full);
    ASSERT_EQ(full->size(), 15u);
    // 1.5 is 0x3FF8000000000000, little-endian.
    EXPECT_EQ(Bytes(full->begin() + 7, full->end()), (Bytes{0, 0, 0, 0, 0, 0, 0xF8, 0x3F}));
    auto read = HVMidiCommand::initWithData(*full);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->midiTime, 1.5);
    EXPECT_EQ(read->timestamp, 0.0);
    EXPECT_EQ(read->pitchbendValue(), 0x10 | (0x40 << 7));

    // Time only: 13 bytes, parameters not read.
    plain.additionalContent = HVMidiCommand::kHasTime;
    plain.midiTime = -2.0;
    auto timed = plain.data();
    ASSERT_TRUE(timed);
    EXPECT_EQ(timed->size(), 13u);
    EXPECT_EQ(HVMidiCommand::initWithData(*timed), plain);

    ScopedLogCapture capture;
    Bytes fourteen(14, 0);
    fourteen[4] = 3;
    EXPECT_FALSE(HVMidiCommand::initWithData(fourteen));
    EXPECT_FALSE(HVMidiCommand::initWithData(Bytes{1, 2, 3, 4}));
    EXPECT_FALSE(HVMidiCommand::initWithData(Bytes{1, 2, 3, 4, 2, 9}));
    EXPECT_EQ(capture.lines().size(), 3u);
    EXPECT_TRUE(capture.contains("HVMidiCommand: 14 bytes is too short, 15 needed"));
    // Extra bytes are ignored; without the time flag midiTime is 0.
    auto extra = HVMidiCommand::initWithData(Bytes{7, 1, 0, 9, 0, 1, 2, 3});
    ASSERT_TRUE(extra);
    EXPECT_EQ(extra->midiTime, 0.0);
    EXPECT_EQ(extra->additionalParam1, 0);
}

TEST(MidiCommand, StringValues) {
    EXPECT_EQ(HVMidiCommand::midiCommandWithCommandType(1, 3, 7, 100).stringValue(), "CH:3, CC:7, Value:100");
    EXPECT_EQ(HVMidiCommand::midiCommandWithCommandType(2, 0, 60, 90).stringValue(), "CH:0, Note On:C 3, Vel:90");
    EXPECT_EQ(HVMidiCommand::midiCommandWithCommandType(3, 1, 61, 0).stringValue(), "CH:1, Note Off:C# 3, Vel:0");
    EXPECT_EQ(HVMidiCommand::midiCommandWithCommandType(7, 4, 0, 12).stringValue(), "CH:4, Program:12");
    EXPECT_EQ(HVMidiCommand::midiCommandWithCommandType(4, 4, 0, 12).stringValue(), "");
    EXPECT_EQ(HVMidiCommand::midiCommandWithPitchbendLSB(0, 0).stringValue(), "CH:0, Pitch:-8192");
    EXPECT_EQ(HVMidiCommand::midiCommandWithPitchbendLSB(127, 127).stringValue(), "CH:0, Pitch:8191");
}

}  // namespace
}  // namespace havrel
