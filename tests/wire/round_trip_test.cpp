// Whatever bytes a payload has, its text and its JSON give them back, in either byte order.
#include "tests/support/children.h"
#include "tests/support/test.h"
#include "wire/batch.h"
#include "wire/json.h"
#include "wire/text.h"

#include <random>

namespace {

using namespace wire;

// Whole segments take seconds, and their parts are here by themselves.
const size_t kMostWhole = test::in_lab_machine() ? 100 : 9000;
const size_t kMostSparse = test::in_lab_machine() ? 9000 : SIZE_MAX; // of them that go by quickly
constexpr Order kOrders[] = {Order::kBig, Order::kLittle, Order::kNative};

// Bytes of which about one in `one_in` is not 0.
Buffer random_bytes(size_t size, std::mt19937 &random, unsigned one_in = 1) {
    Buffer bytes(size);
    for (uint8_t &byte : bytes)
        byte = random() % one_in == 0 ? static_cast<uint8_t>(random()) : uint8_t{0};
    return bytes;
}

void expect_back(const Payload &payload, const Buffer &bytes, Order order) {
    const std::string text = text_of(payload, bytes, order);
    const Json json = json_of(payload, bytes, order);
    EXPECT_TRUE(parse_text(payload, text, order) == bytes) << payload.record->name << " of " << bytes.size();
    EXPECT_TRUE(parse_json(payload, Json::parse(json.dump()), order) == bytes)
        << payload.record->name << " of " << bytes.size();
    EXPECT_EQ(text.find_first_of("\n\x1b\x7f"), std::string::npos);
}

// Lengths about every border between fields, or all of them.
std::vector<size_t> lengths_of(const Record &record) {
    std::vector<size_t> lengths;
    if (record.size <= 64) {
        for (size_t length = 0; length <= record.size + 3; ++length)
            lengths.push_back(length);
        return lengths;
    }
    for (const Field &field : record.fields)
        for (const size_t step : {size_t{0}, size_t{1}, size_t{5}})
            lengths.insert(lengths.end(),
                           {field.offset + step, field.offset + field.width - std::min(field.width, step)});
    lengths.push_back(record.size + 3);
    return lengths;
}

TEST(WireRoundTrip, random_records_come_back_from_text_and_json) {
    std::mt19937 random(1);
    for (const Record *record : all_records())
        for (const Order order : {Order::kBig, Order::kLittle})
            for (const unsigned one_in : {1U, 40U})
                if (record->size <= (one_in == 1 ? kMostWhole : kMostSparse))
                    expect_back(one(*record), random_bytes(record->size, random, one_in), order);
}

TEST(WireRoundTrip, records_of_zeros_and_of_ones_come_back) {
    for (const Record *record : all_records()) {
        if (record->size <= kMostSparse)
            expect_back(one(*record), Buffer(record->size), Order::kNative);
        if (record->size <= kMostWhole)
            expect_back(one(*record), Buffer(record->size, 0xFF), Order::kNative);
    }
}

TEST(WireRoundTrip, records_cut_anywhere_and_overlong_ones_come_back) {
    std::mt19937 random(2);
    for (const Record *record : all_records()) {
        if (record->size > kMostWhole)
            continue;
        for (const size_t length : lengths_of(*record))
            for (const Order order : {Order::kBig, Order::kLittle})
                expect_back(one(*record), random_bytes(length, random, 3), order);
    }
}

TEST(WireRoundTrip, runs_of_any_length_come_back) {
    std::mt19937 random(3);
    const Payload run = run_of(record_of<bri_mac_msg>());
    for (size_t length = 0; length <= 4 * sizeof(bri_mac_msg); ++length) {
        expect_back(run, random_bytes(length, random, 2), Order::kBig);
        expect_back(run, Buffer(length), Order::kLittle);
    }
}

TEST(WireRoundTrip, payloads_of_every_event_come_back_whatever_they_hold) {
    std::mt19937 random(4);
    for (const Event &event : all_events())
        for (const Direction way :
             {Direction::kToClient, Direction::kToServer, Direction::kToKernel, Direction::kFromKernel})
            for (const size_t length : {size_t{0}, size_t{1}, size_t{7}, size_t{60}, size_t{1290}}) {
                const Buffer bytes = random_bytes(length, random);
                const std::string text = message_text(event.type, way, bytes);
                const ParsedMessage back = parse_message(text, way);
                EXPECT_EQ(back.type, event.type);
                EXPECT_TRUE(back.payload == bytes) << text;
            }
}

TEST(WireRoundTrip, swapped_record_reads_the_same_in_the_other_order) {
    std::mt19937 random(5);
    for (const Record *record : all_records()) {
        if (record->size > kMostSparse)
            continue;
        const Buffer big = random_bytes(record->size, random);
        Buffer little = big;
        swap(one(*record), little);
        EXPECT_TRUE(text_of(one(*record), big, Order::kBig) == text_of(one(*record), little, Order::kLittle))
            << record->name;
        swap(one(*record), little);
        EXPECT_TRUE(little == big) << record->name;
    }
}

TEST(WireRoundTrip, each_byte_of_a_swapped_record_is_at_its_place) {
    std::mt19937 random(9);
    for (const Record *record : all_records()) {
        const Buffer big = random_bytes(record->size, random);
        const std::vector<uint32_t> places = swapped_places(*record);
        ASSERT_EQ(places.size(), big.size()) << record->name;
        Buffer little(big.size());
        for (size_t i = 0; i < big.size(); ++i)
            little[places[i]] = big[i];
        swap(one(*record), little);
        EXPECT_TRUE(little == big) << record->name;
    }
}

TEST(WireRoundTrip, batches_are_split_and_joined_in_either_order) {
    std::mt19937 random(6);
    for (const Order order : kOrders) {
        const Buffer first = random_bytes(56, random);
        const Buffer second = random_bytes(80, random);
        const Buffer bytes =
            join({{VLAN_EVENT_RENAME, first, 0}, {MAC_EVENT_NOTIFY_ADDR, second, 0}, {420, {}, 0}}, order);
        const Batch batch = split(bytes, order);
        ASSERT_EQ(batch.messages.size(), 3U);
        EXPECT_TRUE(batch.sound());
        EXPECT_TRUE(std::ranges::equal(batch.messages[0].payload, first));
        EXPECT_TRUE(std::ranges::equal(batch.messages[1].payload, second));
        EXPECT_EQ(batch.messages[2].type, 420U);
        EXPECT_EQ(batch_text(bytes, Direction::kToClient, order).size(), 3U);
        EXPECT_TRUE(join(batch.messages, order) == bytes);
    }
}

TEST(WireRoundTrip, swapped_batch_reads_the_same_in_the_other_order) {
    std::mt19937 random(7);
    std::vector<Buffer> payloads;
    std::vector<Message> messages;
    for (const Event &event : all_events()) {
        const Record *record = event.to_client.record;
        payloads.push_back(random_bytes(record != nullptr ? record->size : random() % 100, random));
        messages.push_back({event.type, payloads.back(), 0});
    }
    const Buffer big = join(messages, Order::kBig);
    Buffer little = big;
    swap_batch(little, Direction::kToClient, Order::kBig);
    EXPECT_EQ(batch_text(big, Direction::kToClient, Order::kBig),
              batch_text(little, Direction::kToClient, Order::kLittle));
    swap_batch(little, Direction::kToClient, Order::kLittle);
    EXPECT_TRUE(little == big);
}

// Nothing is read outside the bytes that are there: the sanitizers watch, each piece is a block of its own.
TEST(WireRoundTrip, batches_of_garbage_and_cut_batches_are_shown) {
    std::mt19937 random(8);
    const Buffer whole = join({{VLAN_EVENT_CREATE_INDEX, random_bytes(56, random), 0},
                               {L2TOP_EVENT_PORT_STATUS, random_bytes(44, random), 0},
                               {BRIDGE_EVENT_REG_MSG, random_bytes(544, random), 0}});
    for (size_t length = 0; length <= whole.size(); ++length) {
        Buffer cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
        cut.shrink_to_fit();
        EXPECT_EQ(split(cut).sound(), length == whole.size());
        EXPECT_FALSE(batch_text(cut, Direction::kToServer).empty());
        swap_batch(cut, Direction::kToServer, Order::kNative);
        swap_batch(cut, Direction::kToClient, Order::kBig);
    }
    for (unsigned round = 0; round < test::scaled_histories(2000); ++round) {
        Buffer bytes = random_bytes(random() % 300, random, 1 + round % 8);
        (void)batch_text(bytes, Direction::kToClient, Order::kBig);
        swap_batch(bytes, Direction::kToClient, Order::kBig);
    }
}

// What a person types wrong is refused with a line or read as something; nothing else happens.
TEST(WireRoundTrip, mutilated_texts_are_refused_or_read) {
    std::mt19937 random(9);
    const std::string spice = "={}\",*|:-x0 \\\n9";
    unsigned refused = 0;
    unsigned read = 0;
    for (const Record *record : all_records()) {
        if (record->size > kMostWhole)
            continue;
        for (unsigned round = 0; round < 200; ++round) {
            std::string text = text_of(one(*record), random_bytes(record->size, random, 30));
            for (unsigned change = 0; change <= round % 3; ++change)
                text[random() % text.size()] = spice[random() % spice.size()];
            try {
                read += parse_text(one(*record), text).size() <= (16U << 20) ? 1U : 0U;
            } catch (const std::invalid_argument &error) {
                refused += *error.what() != 0 ? 1U : 0U;
            }
        }
    }
    EXPECT_GT(refused, 1000U);
    EXPECT_GT(read, test::in_lab_machine() ? 50U : 100U);
}

TEST(WireRoundTrip, no_word_of_a_text_costs_more_than_its_bound) {
    const Payload run = run_of(record_of<vl_evt_vlanset_rec>());
    for (const char *text : {"{}*4294967295", "{}*2000", "length=16777217", "{length=16777216},{length=16777216}"})
        EXPECT_THROW((void)parse_text(run, text), std::invalid_argument) << text;
    EXPECT_EQ(parse_text(run, "{}*1900").size(), 1900 * sizeof(vl_evt_vlanset_rec));
}

} // namespace
