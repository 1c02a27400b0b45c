#include "FakeBroker.h"

#include "Commands.h"
#include "Cursor.h"
#include "FrameBuffer.h"
#include "FrameWriter.h"
#include "ModifiedUtf8.h"
#include "Values.h"
#include "WireFormat.h"

#include <cms/MessageFormatException.h>

#include <gmock/gmock.h>

using namespace kvx::openwire;
using kvx::test::fromHex;
using kvx::test::toHex;

namespace {

const char recordedConnection[] = "ID:h-1-2-0:1";

MessageData fullMessage()
{
    MessageData data;
    data.type = TextMessageType;
    data.id = { "", { "conn", 1, 2 }, 77, 0 };
    data.destination = DestinationName { cms::Destination::TOPIC, "a.b" };
    data.replyTo = DestinationName { cms::Destination::QUEUE, "q" };
    data.correlationId = "corr";
    data.jmsType = "kind";
    data.persistent = true;
    data.priority = 9;
    data.expiration = 1234567890123;
    data.timestamp = 1234567890000;
    data.content = fromHex("00000002 6869");
    data.properties = encodeValues({ { "n", std::int32_t(5) } });
    return data;
}

std::string dispatchOf(const MessageData &message, int version)
{
    FrameWriter out(MessageDispatchType);
    out.i32(0).boolean(false);
    out.boolean(true).u8(ConsumerIdType).string("conn").i64(1).i64(3);
    out.boolean(true).u8(TopicType).string("a.b");
    out.boolean(true).raw(encodeMessage(message, 0, false, version).substr(4));
    out.i32(2);
    return out.take().substr(4);
}

} // namespace

TEST(Marshalling, offerIsTheRecordedOne)
{
    EXPECT_EQ(toHex(encodeWireFormatInfo({})),
        "000000c9014163746976654d510000000c01000000b70000000700115463704e6f44656c6179456e61626c6564"
        "01"
        "01001253697a6550726566697844697361626c65640100000c4361636865456e61626c65640100001454696768"
        "74"
        "456e636f64696e67456e61626c656401000011537461636b5472616365456e61626c6564010000154d6178496e"
        "61"
        "637469766974794475726174696f6e06000000000000753000204d6178496e6163746976697479447572617469"
        "6f"
        "6e496e6974616c44656c6179060000000000002710");
}

TEST(Marshalling, commandsAreTheRecordedOnes)
{
    ConnectionRequest login;
    login.connectionId = recordedConnection;
    login.clientId = "anna@example.org";
    login.userName = "";
    login.password = "";
    EXPECT_EQ(toHex(encodeConnectionInfo(login, 1, 12)),
        "00000037030000000101017801000c49443a682d312d322d303a31010010616e6e61406578616d706c652e6f72"
        "67"
        "01000001000000000001000000");
    EXPECT_EQ(toHex(encodeKeepAlive(2)), "000000060a0000000200");
    EXPECT_EQ(toHex(encodeRemoveConnection(recordedConnection, 3, 12)),
        "0000001f0c0000000301017801000c49443a682d312d322d303a310000000000000000");
    EXPECT_EQ(toHex(encodeShutdown(4)), "000000060b0000000400");
}

TEST(Marshalling, passwordStandsBeforeTheUserName)
{
    ConnectionRequest login;
    login.connectionId = "c";
    login.clientId = "i";
    login.userName = "user";
    login.password = "pw";
    EXPECT_EQ(toHex(encodeConnectionInfo(login, 1, 12)).substr(8, 58),
        "03000000010101780100016301000169010002707701000475736572"
        "00");
}

TEST(Marshalling, sessionStandsLastInAProducersId)
{
    EXPECT_EQ(toHex(encodeProducerInfo({ "c", 1, 2 }, std::nullopt, 1, 12)),
        "0000002306000000010101"
        "7b"
        "01000163"
        "0000000000000002"
        "0000000000000001"
        "00000000000000");
    EXPECT_EQ(toHex(encodeRemoveConsumer({ "c", 1, 2 }, 1, 12)),
        "000000240c000000010101"
        "7a"
        "01000163"
        "0000000000000001"
        "0000000000000002"
        "0000000000000000");
}

TEST(Marshalling, emptySelectorIsSentAsNone)
{
    ConsumerRequest request { { "c", 1, 1 }, { cms::Destination::TOPIC, "t" }, "", false, 1000 };
    const std::string frame = encodeConsumerInfo(request, 1, 12);
    request.selector = "x";
    EXPECT_EQ(encodeConsumerInfo(request, 1, 12).size(), frame.size() + 3);
}

TEST(Marshalling, olderVersionsLackTheLaterFields)
{
    ConnectionRequest login;
    login.connectionId = "c";
    login.clientId = "i";
    std::size_t previous = 0;
    for (const int version : { 1, 2, 6, 8 }) {
        const std::size_t size = encodeConnectionInfo(login, 1, version).size();
        EXPECT_GT(size, previous) << version;
        previous = size;
    }
    EXPECT_EQ(encodeConnectionInfo(login, 1, 12).size(), previous);
}

TEST(Marshalling, answersAreRead)
{
    Command command = decodeCommand(fromHex("1e 00000000 00 00000007"), 12);
    EXPECT_EQ(std::get<Response>(command).correlationId, 7);
    EXPECT_FALSE(std::get<Response>(command).failure);
    command
        = decodeCommand(fromHex("1f 00000000 00 00000008 01 01 0003 612e62 01 0004 6f6f7073"), 12);
    EXPECT_EQ(std::get<Response>(command).correlationId, 8);
    EXPECT_EQ(std::get<Response>(command).failure->className, "a.b");
    EXPECT_EQ(std::get<Response>(command).failure->text, "oops");
    command = decodeCommand(fromHex("22 00000000 00 00000009 00000005"), 12);
    EXPECT_EQ(std::get<Response>(command).correlationId, 9);
}

TEST(Marshalling, messageComesBackAsItWentInEveryVersion)
{
    const MessageData sent = fullMessage();
    for (int version = 1; version <= 12; ++version) {
        const Command command = decodeCommand(dispatchOf(sent, version), version);
        const auto *dispatch = std::get_if<MessageDispatch>(&command);
        ASSERT_TRUE(dispatch) << version;
        EXPECT_EQ(dispatch->consumer.session, 1);
        EXPECT_EQ(dispatch->consumer.value, 3);
        const MessageData &got = *dispatch->message;
        EXPECT_EQ(got.type, sent.type);
        EXPECT_EQ(got.id.producer.session, 1);
        EXPECT_EQ(got.id.producer.value, 2);
        EXPECT_EQ(got.id.producerSequence, 77);
        EXPECT_EQ(got.destination->name, "a.b");
        EXPECT_EQ(got.replyTo->name, "q");
        EXPECT_EQ(got.replyTo->kind, cms::Destination::QUEUE);
        EXPECT_EQ(got.correlationId, sent.correlationId);
        EXPECT_EQ(got.jmsType, sent.jmsType);
        EXPECT_EQ(got.persistent, sent.persistent);
        EXPECT_EQ(got.priority, sent.priority);
        EXPECT_EQ(got.expiration, sent.expiration);
        EXPECT_EQ(got.timestamp, sent.timestamp);
        EXPECT_EQ(got.content, sent.content);
        EXPECT_EQ(got.properties, sent.properties);
        EXPECT_EQ(got.redeliveryCounter, 2);
    }
}

TEST(Marshalling, everyCutOfAFrameIsAnError)
{
    const std::string frame = dispatchOf(fullMessage(), 12);
    for (std::size_t length = 1; length < frame.size(); ++length)
        EXPECT_THROW(decodeCommand(frame.substr(0, length), 12), DecodeError) << length;
    EXPECT_NO_THROW(decodeCommand(frame + "left over", 12));
}

TEST(Marshalling, unknownCommandsAreIgnored)
{
    for (int type = 0; type < 256; ++type) {
        const std::string frame(1, static_cast<char>(type));
        try {
            decodeCommand(frame, 12);
        } catch (const DecodeError &) {
            // A known command that is cut.
        }
    }
    EXPECT_TRUE(std::holds_alternative<Ignored>(decodeCommand(fromHex("fe 0102"), 12)));
}

TEST(Marshalling, objectsNestedTooDeeplyAreAnError)
{
    // A transaction id whose connection is a transaction id, and so on.
    std::string nested;
    for (int i = 0; i < 1000; ++i)
        nested += fromHex("01 6f 0000000000000000");
    const std::string head = fromHex("15 00000000 00 00 00 01 1c 00000000 00 00 00");
    EXPECT_THROW(decodeCommand(head + nested, 12), DecodeError);
}

TEST(Marshalling, negotiationTakesTheSmaller)
{
    WireFormat ours;
    WireFormat theirs;
    theirs.version = 9;
    theirs.maxInactivity = std::chrono::milliseconds(4000);
    theirs.initialDelay = std::chrono::milliseconds(20000);
    theirs.maxFrameSize = 1000;
    const WireFormat agreed = negotiate(ours, theirs);
    EXPECT_EQ(agreed.version, 9);
    EXPECT_EQ(agreed.maxInactivity.count(), 4000);
    EXPECT_EQ(agreed.initialDelay.count(), 10000);
    EXPECT_EQ(agreed.maxFrameSize, 1000);
    theirs.version = 100;
    EXPECT_EQ(negotiate(ours, theirs).version, 12);
    theirs.version = 0;
    EXPECT_THROW(negotiate(ours, theirs), ProtocolError);
    theirs.version = 12;
    theirs.maxInactivity = std::chrono::milliseconds(1); // would be nothing but keep-alives
    EXPECT_GE(negotiate(ours, theirs).maxInactivity.count(), 300);
    theirs.maxInactivity = std::chrono::milliseconds(0);
    EXPECT_EQ(negotiate(ours, theirs).maxInactivity.count(), 0);
}

TEST(Marshalling, offerWithoutOptionsSwitchesInactivityOff)
{
    const WireFormat offer = decodeWireFormatInfo(fromHex("01 4163746976654d51 0000000c 00"));
    EXPECT_EQ(offer.version, 12);
    EXPECT_EQ(offer.maxInactivity.count(), 0);
    EXPECT_GT(offer.maxFrameSize, 1ll << 40);
}

TEST(Marshalling, valuesOfEveryKindComeBack)
{
    const ValueMap values = {
        { "bool", true },
        { "byte", std::int8_t(-1) },
        { "short", std::int16_t(-300) },
        { "int", std::int32_t(-70000) },
        { "long", -(std::int64_t(1) << 40) },
        { "double", -2.25 },
        { "float", 1.5f },
        { "text", std::string("gr\xc3\xbc\xc3\x9f") },
        { "big", std::string(100000, 'x') },
        { "null", OpaqueValue { 0, {} } },
        { "char", OpaqueValue { 3, fromHex("0041") } },
        { "bytes", OpaqueValue { 10, fromHex("00000002 0102") } },
        { "list", OpaqueValue { 12, fromHex("00000002 00 05 00000001") } },
        { "map", OpaqueValue { 11, fromHex("00000001 0001 61 01 01") } },
    };
    EXPECT_EQ(decodeValues(encodeValues(values)), values);
    EXPECT_TRUE(decodeValues(fromHex("ffffffff")).empty());
    EXPECT_TRUE(decodeValues({}).empty());
}

TEST(Marshalling, damagedValuesAreAnError)
{
    EXPECT_THROW(decodeValues(fromHex("7fffffff")), DecodeError);
    EXPECT_THROW(decodeValues(fromHex("00000001 0001 61 0e")), DecodeError);
    std::string lists = fromHex("00000001 0001 61");
    for (int i = 0; i < 1000; ++i)
        lists += fromHex("0c 00000001");
    EXPECT_THROW(decodeValues(lists + fromHex("00")), DecodeError);
    EXPECT_THROW(decodeValues(fromHex("000000")), DecodeError);
}

TEST(Marshalling, headerTextsBecomeModifiedUtf8)
{
    EXPECT_EQ(toModifiedUtf8("plain"), "plain");
    EXPECT_EQ(toModifiedUtf8(std::string("a\0b", 3)),
        "a\xc0\x80"
        "b");
    EXPECT_EQ(toModifiedUtf8("\xf0\x9f\x98\x80"), "\xed\xa0\xbd\xed\xb8\x80");
    EXPECT_EQ(
        toModifiedUtf8("\xed\xa0\xbd\xed\xb8\x80\xc0\x80"), "\xed\xa0\xbd\xed\xb8\x80\xc0\x80");
    for (const char *bad :
        { "\xff", "\xc3", "\xe2\x82", "\x80", "\xf0\x80\x80\x80", "\xf4\x90\x80\x80" })
        EXPECT_THROW(toModifiedUtf8(bad), cms::MessageFormatException) << toHex(bad);
}

TEST(FrameBuffer, framesComeWholeHoweverTheBytesArrive)
{
    const std::string stream
        = kvx::test::framed("first") + kvx::test::framed("x") + kvx::test::framed("third!");
    for (std::size_t step = 1; step <= stream.size(); ++step) {
        FrameBuffer buffer;
        std::vector<std::string> frames;
        for (std::size_t at = 0; at < stream.size(); at += step) {
            buffer.append(std::string_view(stream).substr(at, step));
            while (const auto frame = buffer.next())
                frames.emplace_back(*frame);
        }
        EXPECT_THAT(frames, testing::ElementsAre("first", "x", "third!")) << step;
    }
}

TEST(FrameBuffer, whatALargeFrameNeededIsGivenBack)
{
    FrameBuffer buffer;
    buffer.append(kvx::test::framed(std::string(8 << 20, 'x')));
    ASSERT_TRUE(buffer.next());
    EXPECT_FALSE(buffer.next());
    buffer.append(kvx::test::framed("small"));
    EXPECT_LT(buffer.capacity(), 1u << 20);
}
