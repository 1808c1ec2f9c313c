// Replies as the router's neighbours send them, for the JSON readers.
#pragma once

#include <string>

namespace bench {

// Some members, and an array of records.
inline std::string reply(size_t records, const std::string &space,
                         const std::string &name = "station") {
    std::string text = "{" + space + "\"jsonrpc\":\"2.0\"," + space + "\"id\":17," + space +
                       "\"result\":{\"ok\":true,\"none\":null,\"list\":[" + space;
    for (size_t i = 0; i < records; ++i) {
        text += (i != 0 ? "," + space : std::string()) +
                "{\"mac\":\"00:1A:2B:3C:4D:" + std::to_string(10 + i) + "\"," + space +
                "\"rssi\":-" + std::to_string(40 + i) + "," + space + "\"name\":\"" + name +
                " number " + std::to_string(i) + "\"}";
    }
    return text + "]}}";
}

// 8 KB.
inline std::string deep_reply() {
    std::string text = "[";
    for (int i = 0; i < 3; ++i) {
        text += (i != 0 ? "," : "") + reply(20, "", std::string(80, 'n'));
    }
    return text + "]";
}

inline std::string long_text() {
    return "{\"log\":\"" + std::string(8000, 'x') + "\"}";
}

inline const std::string kIndent = "\n        ";

} // namespace bench
