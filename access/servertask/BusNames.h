#pragma once
// Where clients find ServerTask on the session bus.
namespace vq::servertask {
inline constexpr const char* kBusName = "com.halvenor.OrvantisServer";
inline constexpr const char* kObjectPath = "/ServerTask";
inline constexpr const char* kInterface = "com.halvenor.OrvantisServer.ServerTask";
}  // namespace vq::servertask
