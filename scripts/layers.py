"""Which room may include what: the arrows of docs/architecture.md, held by scripts/check layers."""

# What a folder may include, by the start of the included path, or FOLDER/* for the files of a folder without those of
# the folders in it; the longest matching key decides.
LAYERS = {
    "include/": ("include/",),
    "src/universal_api/": ("src/universal_api/", "include/universal_api.h"),
    "src/plc_ethernet/": ("src/plc_ethernet/", "include/plc_ethernet.h", "include/plc_driver.h"),
    "src/plc_driver/": ("src/plc_driver/", "include/plc_driver.h", "include/plc_driver_hooks.h"),
    "src/plc_driver/text/": ("src/plc_driver/text/", "src/plc_driver/private_api.h"),
    "src/plc_driver/tags/": ("src/plc_driver/tags/", "src/plc_driver/text/", "src/plc_driver/diagnostics.h",
                             "src/plc_driver/private_api.h", "include/plc_driver.h"),
    "src/plc_driver/protocol/": ("src/plc_driver/protocol/", "src/plc_driver/tags/", "src/plc_driver/text/",
                                 "src/plc_driver/diagnostics.h", "src/plc_driver/guard_lines.h",
                                 "src/plc_driver/build_kind.h", "src/plc_driver/driver_state.h",
                                 "src/plc_driver/private_api.h", "include/plc_driver.h", "include/plc_ethernet.h"),
    "src/plc_driver/host/": ("src/plc_driver/", "include/"),
    "base/": ("base/",),
    "wire/": ("wire/*",),
    "wire/captures/": ("wire/",),
    "tools/plc_sim/variables/": ("tools/plc_sim/variables/", "wire/*"),
    "tools/plc_sim/controller/": ("tools/plc_sim/controller/", "tools/plc_sim/variables/", "wire/*"),
    "tools/plc_sim/server/": ("tools/plc_sim/server/", "tools/plc_sim/controller/", "tools/plc_sim/variables/",
                              "wire/"),
    "tools/plc_sim/page/": ("tools/plc_sim/page/", "tools/plc_sim/controller/", "tools/plc_sim/variables/", "wire/*"),
    "tools/plc_sim/console/": ("tools/plc_sim/console/", "tools/plc_sim/controller/", "tools/plc_sim/variables/",
                               "wire/*"),
    "tools/plc_sim/": ("tools/plc_sim/", "wire/"),
    "dissector/": ("dissector/",),
    "client/values/": ("client/*", "client/values/", "include/"),
    "client/driver/": ("client/*", "client/values/", "client/driver/", "include/"),
    "client/tags/": ("client/*", "client/values/", "client/driver/", "client/tags/", "include/", "tag_check/"),
    "client/plan/": ("client/", "include/"),
    "client/controller/": ("client/", "include/"),
    "client/": ("client/*",),
    "tools/plc_host/watch/": ("tools/plc_host/*", "tools/plc_host/watch/", "client/", "include/"),
    "tools/plc_host/why/": ("tools/plc_host/*", "tools/plc_host/why/", "client/", "include/", "wire/"),
    "tools/plc_host/commands/": ("tools/plc_host/", "client/", "include/", "tag_check/"),
    "tools/plc_host/": ("tools/plc_host/*", "client/", "include/"),
    "tools/plc_host/main.cpp": ("tools/plc_host/commands/", "tools/plc_host/exit_codes.h"),
    "python/": ("python/", "client/plc_client.h"),
    "tag_check/": ("tag_check/", "include/", "src/plc_driver/tags/", "src/plc_driver/text/"),
    "examples/": ("examples/", "include/"),
}

# All programs may use what knows nothing of the protocol; the driver needs the C library alone.
WITHOUT_BASE = ("include/", "src/", "dissector/", "examples/")
