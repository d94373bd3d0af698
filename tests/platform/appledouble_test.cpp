#include "platform/linux/appledouble.h"

#include "metadata_support.h"

#include <random>

using namespace appledouble;

namespace {
std::vector<uint8_t> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

std::optional<Header> Parse(const std::string& text) {
    const auto bytes = Bytes(text);
    return ParseHeader(bytes, bytes.size());
}

std::string HeaderOf(const uint8_t* bytes, size_t size) {
    return {reinterpret_cast<const char*>(bytes), size};
}

Facts SomeFacts() {
    Facts facts;
    std::memcpy(facts.finderInfo, "TEXTttxt", 8);
    facts.finderInfo[31] = 7;
    facts.createDate = -5;
    facts.backupDate = 0x01020304;
    facts.locked = true;
    return facts;
}
} // namespace

TEST(AppleDoubleAttribute, New_HasTheEntriesThatFileServersExpect) {
    Attribute attribute;
    MakeAttribute(attribute);
    const std::string expected = Big32(0x00051607) + Big32(0x00020000) + "Netatalk        " + Big16(8) +
                                 Big32(9) + Big32(122) + Big32(32) +         //
                                 Big32(4) + Big32(154) + Big32(0) +          //
                                 Big32(8) + Big32(354) + Big32(16) +         //
                                 Big32(14) + Big32(370) + Big32(4) +         //
                                 Big32(0x80444556) + Big32(374) + Big32(0) + //
                                 Big32(0x80494E4F) + Big32(382) + Big32(0) + //
                                 Big32(0x8053594E) + Big32(390) + Big32(0) + //
                                 Big32(0x8053567E) + Big32(398) + Big32(0);
    EXPECT_EQ(HeaderOf(attribute, 122), expected);
    EXPECT_EQ(sizeof(attribute), 402u);
    EXPECT_EQ(HeaderOf(attribute + 354, 16),
              Big32(0x80000000) + Big32(0x80000000) + Big32(0x80000000) + Big32(0x80000000));
}

TEST(AppleDoubleAttribute, MadeWithFacts_IsTheOneThatTheyAreWrittenTo) {
    Attribute made, written;
    MakeAttribute(made, SomeFacts());
    MakeAttribute(written);
    ASSERT_TRUE(WriteFacts(*ParseHeader(written, sizeof(written)), written, SomeFacts()));
    EXPECT_EQ(std::memcmp(made, written, sizeof(made)), 0);
}

TEST(AppleDoubleAttribute, Facts_LieWhereFileServersLookForThem) {
    Attribute attribute;
    MakeAttribute(attribute);
    ASSERT_TRUE(WriteFacts(*ParseHeader(attribute, sizeof(attribute)), attribute, SomeFacts()));
    EXPECT_EQ(HeaderOf(attribute + 122, 8), "TEXTttxt");
    EXPECT_EQ(attribute[153], 7);
    EXPECT_EQ(HeaderOf(attribute + 354, 16),
              Big32(0xFFFFFFFB) + Big32(0x80000000) + Big32(0x01020304) + Big32(0x80000000));
    EXPECT_EQ(HeaderOf(attribute + 370, 4), Big32(0x000001A0));
    EXPECT_EQ(ReadFacts(*ParseHeader(attribute, sizeof(attribute)), attribute), SomeFacts());
}

TEST(AppleDoubleAttribute, New_HoldsNothingUntilAFactIsStored) {
    for (int which = 0; which < 4; ++which) {
        Attribute attribute;
        MakeAttribute(attribute);
        const Header header = *ParseHeader(attribute, sizeof(attribute));
        EXPECT_TRUE(HoldsNothing(header, attribute));
        Facts facts;
        if (which == 0) facts.finderInfo[20] = 1;
        if (which == 1) facts.createDate = 0;
        if (which == 2) facts.backupDate = 0;
        if (which == 3) facts.locked = true;
        WriteFacts(header, attribute, facts);
        EXPECT_FALSE(HoldsNothing(header, attribute)) << which;
        WriteFacts(header, attribute, Facts{});
        EXPECT_TRUE(HoldsNothing(header, attribute)) << which;
    }
}

TEST(AppleDoubleAttribute, Unlocking_LeavesOtherServersBits) {
    auto bytes = Bytes(AppleDouble({{kAFPInfo, 38, Big32(0x000081A1)}}));
    const Header header = *ParseHeader(bytes, bytes.size());
    EXPECT_TRUE(ReadFacts(header, bytes).locked);
    WriteFacts(header, bytes, Facts{});
    EXPECT_EQ(HeaderOf(&bytes[38], 4), Big32(0x00008001));
}

TEST(AppleDoubleAttribute, Locked_IsWhatMayNotBeWritten) {
    for (const auto& [bits, locked] :
         {std::pair{0x0020, true}, {0x0080, false}, {0x0100, false}, {0x01A0, true}}) {
        const auto bytes = Bytes(AppleDouble({{kAFPInfo, 38, Big32(static_cast<uint32_t>(bits))}}));
        EXPECT_EQ(ReadFacts(*ParseHeader(bytes, bytes.size()), bytes).locked, locked) << bits;
    }
}

TEST(AppleDoubleAttribute, StoringTheSameLock_LeavesAPartlyInhibitedObjectAsItIs) {
    auto bytes = Bytes(AppleDouble({{kAFPInfo, 38, Big32(0x00000080)}}));
    const Header header = *ParseHeader(bytes, bytes.size());
    WriteFacts(header, bytes, Facts{});
    EXPECT_EQ(HeaderOf(&bytes[38], 4), Big32(0x00000080));
}

TEST(AppleDoubleAttribute, CommentOfAnotherRecord_ComesAlong) {
    const auto bytes = Bytes(AppleDouble({{kComment, 50, "a comment"}, {99, 80, "?"}}));
    Attribute attribute;
    MakeAttribute(attribute);
    CopyComment(*ParseHeader(bytes, bytes.size()), bytes, attribute);
    const Header header = *ParseHeader(attribute, sizeof(attribute));
    EXPECT_EQ(header.Find(kComment)->length, 9u);
    EXPECT_EQ(HeaderOf(attribute + 154, 9), "a comment");
    EXPECT_FALSE(HoldsNothing(header, attribute));
}

TEST(AppleDoubleAttribute, CommentThatIsTooLong_IsLeftOut) {
    const auto bytes = Bytes(AppleDouble({{kComment, 38, std::string(201, 'c')}}));
    Attribute attribute;
    MakeAttribute(attribute);
    CopyComment(*ParseHeader(bytes, bytes.size()), bytes, attribute);
    EXPECT_TRUE(HoldsNothing(*ParseHeader(attribute, sizeof(attribute)), attribute));
}

TEST(AppleDoubleHeader, FactsWithoutAPlace_AreReported) {
    auto bytes = Bytes(AppleDouble({{kFinderInfo, 50, FinderInfo("TEXTttxt")}, {kResourceFork, 82, "fork"}}));
    const Header header = *ParseHeader(bytes, bytes.size());
    Facts facts = ReadFacts(header, bytes);
    EXPECT_TRUE(WriteFacts(header, bytes, facts));
    facts.locked = true;
    EXPECT_FALSE(WriteFacts(header, bytes, facts));
}

TEST(AppleDoubleHeader, FinderInfoShorterThan32Bytes_IsNone) {
    const auto bytes = Bytes(AppleDouble({{kFinderInfo, 38, "TEXTttxt"}}));
    EXPECT_EQ(ReadFacts(*ParseHeader(bytes, bytes.size()), bytes), Facts{});
}

TEST(AppleDoubleHeader, EntriesInAnyOrderAndSize_AreFound) {
    const auto header =
        Parse(AppleDouble({{kResourceFork, 50, "fork"}, {kFinderInfo, 60, std::string(4000, 'f')}}));
    ASSERT_TRUE(header);
    EXPECT_EQ(header->Find(kResourceFork)->offset, 50u);
    EXPECT_EQ(header->Find(kFinderInfo)->length, 4000u);
    EXPECT_EQ(header->End(), 4060u);
    EXPECT_EQ(header->Find(kComment), nullptr);
}

TEST(AppleDoubleHeader, EmptyEntryAnywhere_IsSound) {
    EXPECT_TRUE(Parse(AppleDouble({{kResourceFork, 38, ""}})));
    std::string bytes = AppleDouble({{kResourceFork, 38, ""}});
    bytes.replace(30, 4, Big32(0xFFFFFFFF));
    EXPECT_TRUE(Parse(bytes));
}

TEST(AppleDoubleHeader, BrokenBytes_AreRefused) {
    const std::string sound = AppleDouble({{kFinderInfo, 50, FinderInfo("")}, {kResourceFork, 82, "fork"}});
    ASSERT_TRUE(Parse(sound));
    struct {
        const char* what;
        size_t at;
        std::string bytes;
    } const cases[] = {
        {"another magic", 0, Big32(0x00051600)},
        {"an unknown version", 4, Big32(0x00030000)},
        {"more entries than there are bytes", 24, Big16(64)},
        {"too many entries", 24, Big16(65)},
        {"an entry beyond the end", 30, Big32(60)},
        {"an entry longer than the file", 34, Big32(0xFFFFFFF0)},
        {"an offset and a length whose sum overflows", 30, Big32(0xFFFFFFF0) + Big32(0x20)},
        {"an entry inside the header", 30, Big32(20)},
        {"entries that share bytes", 42, Big32(81)},
        {"two entries of one kind", 38, Big32(kFinderInfo)},
    };
    for (const auto& each : cases) {
        std::string bytes = sound;
        bytes.replace(each.at, each.bytes.size(), each.bytes);
        EXPECT_FALSE(Parse(bytes)) << each.what;
    }
    for (size_t size = 0; size < sound.size(); ++size) EXPECT_FALSE(Parse(sound.substr(0, size))) << size;
}

TEST(AppleDoubleHeader, RandomBytes_AreNeverReadOutside) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::string sound = AppleDouble({{kFinderInfo, 62, FinderInfo("")},
                                           {kFileDates, 94, std::string(16, 1)},
                                           {kResourceFork, 110, "fork"}});
    for (int round = 0; round < 20000; ++round) {
        auto bytes = Bytes(sound.substr(0, random() % (sound.size() + 1)));
        for (unsigned changes = random() % 6; changes && !bytes.empty(); --changes) {
            bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
        }
        const auto header = ParseHeader(bytes, bytes.size());
        if (!header) continue;
        for (unsigned i = 0; i < header->count; ++i) {
            const Entry& entry = header->entries[i];
            ASSERT_TRUE(!entry.length || uint64_t{entry.offset} + entry.length <= bytes.size());
        }
        const Facts facts = ReadFacts(*header, bytes);
        WriteFacts(*header, bytes, facts);
        HoldsNothing(*header, bytes);
    }
}

TEST(AppleDoubleFront, Plain_HasFinderInformationAndAForkAtTheUsualOffsets) {
    uint8_t front[kMostFrontSize];
    ASSERT_EQ(MakeFront(false, front), 82u);
    EXPECT_EQ(HeaderOf(front + 24, 26),
              Big16(2) + Big32(9) + Big32(50) + Big32(32) + Big32(2) + Big32(82) + Big32(0));
}

TEST(AppleDoubleFront, Full_HasAPlaceForEveryFactAndRoomForAFork) {
    uint8_t front[kMostFrontSize];
    const size_t size = MakeFront(true, front);
    const auto header = ParseHeader(std::span(front, size), size);
    ASSERT_TRUE(header);
    EXPECT_TRUE(WriteFacts(*header, front, SomeFacts()));
    EXPECT_EQ(header->Find(kResourceFork), nullptr);
    ASSERT_TRUE(AddResourceFork(*header, front, size));
    const auto grown = ParseHeader(std::span(front, size), size);
    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->Find(kResourceFork)->offset, size);
    EXPECT_EQ(ReadFacts(*grown, front), SomeFacts());
    EXPECT_FALSE(AddResourceFork(*grown, front, size));
}
