// Random documents (nested objects and arrays, every scalar kind the reader produces, random
// UTF-8 texts and member names, extreme numbers) are written, read back and compared, compact
// and indented. The seed is printed so that a failure can be replayed.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <limits>
#include <random>
#include <string>

#include "dme/json.h"
#include "json_documents.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;

class RandomDocuments {
  public:
    explicit RandomDocuments(std::uint32_t seed) : random_(seed) {}

    // Most documents are an object or an array; one in ten is a lone scalar.
    SerializationInfo document() {
        SerializationInfo root;
        fill(root, 0, below(10) == 0 ? below(8) : 8 + below(2));
        return root;
    }

    // The number of scalars and containers written so far.
    long nodes() const { return nodes_; }

  private:
    std::uint32_t below(std::uint32_t n) { return random_() % n; }

    void fill(SerializationInfo& node, unsigned int depth) {
        fill(node, depth, below(depth < 6 ? 10 : 8));
    }

    void fill(SerializationInfo& node, unsigned int depth, std::uint32_t kind) {
        ++nodes_;
        switch (kind) {
            case 0:
                node.setValue(text());
                break;
            case 1:
                node.setValue(static_cast<long long>(random_()) - (1LL << 31) * below(3));
                break;
            case 2:
                node.setValue(extremeInteger());
                break;
            case 3:
                node.setValue(floating());
                break;
            case 4:
                node.setValue(below(2) == 0);
                break;
            case 5:
                node.setCategory(SerializationInfo::Value);
                break;
            case 6:
            case 7:
                node.setValue(text());
                break;
            case 8:
                node.setCategory(SerializationInfo::Object);
                for (std::uint32_t i = below(8); i > 0; --i)
                    fill(node.addMember(name()), depth + 1);
                break;
            default:
                node.setCategory(SerializationInfo::Array);
                for (std::uint32_t i = below(8); i > 0; --i) fill(node.addMember(), depth + 1);
                break;
        }
    }

    unsigned long long extremeInteger() {
        static const unsigned long long values[] = {0, 1, std::numeric_limits<std::uint32_t>::max(),
                                                    std::numeric_limits<long long>::max(),
                                                    std::numeric_limits<unsigned long long>::max()};
        return values[below(5)];
    }

    double floating() {
        static const double values[] = {0.1,
                                        -0.0,
                                        0.30000000000000004,
                                        5e-324,
                                        2.2250738585072014e-308,
                                        std::numeric_limits<double>::max(),
                                        -std::numeric_limits<double>::max(),
                                        1e21,
                                        123456789.12345679,
                                        3.141592653589793};
        if (below(2) == 0) return values[below(10)];
        // Any finite double, from its bits.
        for (;;) {
            const std::uint64_t bits = (static_cast<std::uint64_t>(random_()) << 32) | random_();
            double value = 0;
            static_assert(sizeof value == sizeof bits, "64-bit doubles");
            std::memcpy(&value, &bits, sizeof value);
            if (std::isfinite(value)) return value;
        }
    }

    // A code point of any plane (no surrogates), weighted towards ASCII and the characters
    // that need escaping.
    unsigned int codePoint() {
        switch (below(6)) {
            case 0:
                return below(0x20);
            case 1:
                return "\"\\/\x7f"[below(4)];
            case 2:
                return 0x80 + below(0x800 - 0x80);
            case 3: {
                const unsigned int code = 0x800 + below(0x10000 - 0x800);
                return code >= 0xD800 && code <= 0xDFFF ? 0xFEFF : code;
            }
            case 4:
                return 0x10000 + below(0x110000 - 0x10000);
            default:
                return 0x20 + below(0x5F);
        }
    }

    std::string text() {
        std::string out;
        for (std::uint32_t i = below(12); i > 0; --i) {
            const unsigned int code = codePoint();
            if (code < 0x80) {
                out += static_cast<char>(code);
            } else if (code < 0x800) {
                out += static_cast<char>(0xC0 | (code >> 6));
                out += static_cast<char>(0x80 | (code & 0x3F));
            } else if (code < 0x10000) {
                out += static_cast<char>(0xE0 | (code >> 12));
                out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (code & 0x3F));
            } else {
                out += static_cast<char>(0xF0 | (code >> 18));
                out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
                out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (code & 0x3F));
            }
        }
        return out;
    }

    // Member names are random texts too, never empty: an empty name of an object-valued
    // member cannot be told from an unnamed member (see formatJson).
    std::string name() {
        std::string out = text();
        return out.empty() ? "k" : out;
    }

    std::mt19937 random_;
    long nodes_ = 0;
};

TEST(JsonProperty, RandomDocumentsSurviveWritingAndReading) {
    const std::uint32_t seed = std::random_device()();
    RecordProperty("seed", static_cast<int>(seed));
    std::cout << "seed " << seed << std::endl;
    RandomDocuments documents(seed);
    constexpr int CASES = 20000;
    for (int i = 0; i < CASES; ++i) {
        const SerializationInfo original = documents.document();
        for (const bool beautify : {false, true}) {
            const std::string text = formatJson(original, beautify);
            SerializationInfo again;
            ASSERT_NO_THROW(again = parseJson(text))
                << "seed " << seed << " case " << i << ": " << text;
            std::string why;
            ASSERT_TRUE(test::sameDocument(original, again, why))
                << "seed " << seed << " case " << i << ": " << why << " in " << text;
            EXPECT_EQ(formatJson(again, beautify), text) << "seed " << seed << " case " << i;
        }
    }
    // The documents were not trivially small.
    EXPECT_GT(documents.nodes(), 10L * CASES);
}

}  // namespace
}  // namespace dme
