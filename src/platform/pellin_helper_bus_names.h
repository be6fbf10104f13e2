#pragma once

namespace kora {

// Where the daemon finds its self-update helper on the system bus, and the one
// operation it offers. The helper and the daemon both use these, so the two
// sides cannot drift apart.
inline constexpr const char* kPellinHelperBusName = "com.olvara.PellinHelper";
inline constexpr const char* kPellinHelperObjectPath = "/com/olvara/PellinHelper";
inline constexpr const char* kPellinHelperInterface = "com.olvara.PellinHelper";
// (as identifier, as binary) -> b
inline constexpr const char* kInstallDaemonMember = "installDaemonWithIdentifier_andBinary";

// The interface as the helper describes it. GDBus refuses every call whose
// signature differs before the helper's code runs.
inline constexpr const char* kPellinHelperIntrospection = R"(<node>
  <interface name="com.olvara.PellinHelper">
    <method name="installDaemonWithIdentifier_andBinary">
      <arg name="identifier" type="as" direction="in"/>
      <arg name="binary" type="as" direction="in"/>
      <arg name="installed" type="b" direction="out"/>
    </method>
  </interface>
</node>)";

}  // namespace kora
