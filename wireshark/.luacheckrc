-- Lua of Wireshark 4, and what it offers to dissectors.
std = "lua52"
max_line_length = 110
read_globals = {
    "base", "expert", "frametype", "Proto", "ProtoField", "ProtoExpert", "Pref", "Field",
    "DissectorTable", "NSTime", "dissect_tcp_pdus", "report_failure",
}
