// The encoders' bytes, and what the decoders read of them.
#include "platform_encoders.h"

#include <array>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "encapsulation_layout.h"
#include "lookup_keys.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint8_t untouched = 0xEE;

Bytes key_of(uint32_t index, uint32_t zero, uint32_t kind)
{
    std::array<uint8_t, ENCODER_SCRATCH_BYTES> scratch;
    scratch.fill(untouched);
    const uint32_t length = appl_construct_config_db_key(index, zero, scratch.data(), kind);
    EXPECT_EQ(untouched, scratch[length]);
    return {scratch.begin(), scratch.begin() + length};
}

sdn_encap_input some_input()
{
    sdn_encap_input input{};
    input.flag_0 = 1;
    input.flag_1 = 1;
    input.protocol = 17;
    input.src_ip = 0xC0000201;
    input.dst_ip = 0xCB007105;
    input.sport = 0x1234;
    input.dport = 0xABCD;
    input.user_2_flags = 1;
    input.is_user_4 = 1;
    input.known_user_30 = 1;
    input.known_user_36 = 1;
    input.known_user_37 = 3;
    return input;
}

// As the library stores it: behind four zero bytes.
Bytes result_of(void *encoder, const sdn_encap_input *input)
{
    std::array<uint8_t, ENCODER_SCRATCH_BYTES> scratch;
    scratch.fill(untouched);
    const uint32_t length =
        appl_construct_sdn_encap_service_config_db_result(encoder, input, scratch.data());
    EXPECT_EQ(untouched, scratch[length]);
    Bytes result(encapsulation_layout::zero_bytes);
    result.insert(result.end(), scratch.begin(), scratch.begin() + length);
    return result;
}

TEST(Encoders, AKeyIsTheKindAndTheServicesShadowKey)
{
    EXPECT_EQ(key_of(0, 0, ENCODER_KEY_ORDINARY), (Bytes{0x13, 0x03, 0x00}));
    EXPECT_EQ(key_of(255, 0, ENCODER_KEY_ORDINARY), (Bytes{0x13, 0x03, 0xFF}));
}

TEST(Encoders, AKeyIsTheSameForEveryUserSoThatAModifyFindsItsRow)
{
    EXPECT_EQ(key_of(5, 0, ENCODER_KEY_USER_2), key_of(5, 0, ENCODER_KEY_ORDINARY));
}

TEST(Encoders, AKeyThatCannotBeIsNotWritten)
{
    EXPECT_EQ(key_of(256, 0, ENCODER_KEY_ORDINARY), Bytes{});
    EXPECT_EQ(key_of(1, 1, ENCODER_KEY_ORDINARY), Bytes{});
    EXPECT_EQ(key_of(1, 0, 0), Bytes{});
    EXPECT_EQ(key_of(1, 0, 3), Bytes{});
    EXPECT_EQ(0u, appl_construct_config_db_key(1, 0, nullptr, ENCODER_KEY_ORDINARY));
}

TEST(Encoders, AKeysMeaningIsTheShadowKey)
{
    const auto meaning = lookup_keys::meaning_of(key_of(7, 0, ENCODER_KEY_ORDINARY));
    ASSERT_TRUE(meaning);
    EXPECT_EQ(lookup_keys::service_kind, meaning->kind);
    EXPECT_EQ(0x307, meaning->shadow_key);
}

TEST(Encoders, AResultHasTheDocumentedBytes)
{
    void *encoder = ac_encode_init(1, 2, 3, 4);
    ASSERT_NE(nullptr, encoder);
    const sdn_encap_input input = some_input();
    EXPECT_EQ(result_of(encoder, &input),
              (Bytes{0,    0, 0,    0,    2,    17,   1,    1,    0, 0, 1, 1, 0xC0, 0, 2, 1,
                     0xCB, 0, 0x71, 0x05, 0x12, 0x34, 0xAB, 0xCD, 1, 1, 3, 0, 0,    0, 0, 0}));
}

TEST(Encoders, WhatAResultSaysIsWhatWasEncoded)
{
    const sdn_encap_input input = some_input();
    const auto found =
        encapsulation_layout::encapsulation_in(result_of(ac_encode_init(0, 0, 0, 0), &input));
    ASSERT_TRUE(found);
    const encapsulation_layout::Encapsulation expected{.source = 0xC0000201,
                                                       .destination = 0xCB007105,
                                                       .source_port = 0x1234,
                                                       .destination_port = 0xABCD,
                                                       .protocol = 17,
                                                       .flags = {1, 1, 0, 0},
                                                       .user_flags = 1,
                                                       .is_user_4 = 1,
                                                       .known_user = {1, 1, 3}};
    EXPECT_EQ(*found, expected);
}

TEST(Encoders, AResultOfAnotherLayoutSaysNothing)
{
    const sdn_encap_input input = some_input();
    const Bytes good = result_of(ac_encode_init(0, 0, 0, 0), &input);
    for (const size_t place : {0U, 3U, 4U, 5U}) { // the zero bytes, the action, the protocol
        Bytes other = good;
        other[place] ^= 0x40;
        EXPECT_FALSE(encapsulation_layout::encapsulation_in(other)) << place;
    }
    EXPECT_FALSE(encapsulation_layout::encapsulation_in(Bytes(good.begin(), good.end() - 1)));
    EXPECT_FALSE(encapsulation_layout::encapsulation_in(Bytes{}));
}

TEST(Encoders, NothingIsWrittenWithAnotherHandleOrWithoutAnInput)
{
    void *encoder = ac_encode_init(0, 0, 0, 0);
    const sdn_encap_input input = some_input();
    int stranger = 0;
    uint8_t result[ENCODER_SCRATCH_BYTES] = {};
    EXPECT_EQ(0u, appl_construct_sdn_encap_service_config_db_result(&stranger, &input, result));
    EXPECT_EQ(0u, appl_construct_sdn_encap_service_config_db_result(nullptr, &input, result));
    EXPECT_EQ(0u, appl_construct_sdn_encap_service_config_db_result(encoder, nullptr, result));
    EXPECT_EQ(0u, appl_construct_sdn_encap_service_config_db_result(encoder, &input, nullptr));
    EXPECT_EQ(0, result[0]);
}

} // namespace
