-- Written by simhost/tool/ryn_sim/generate.py from members/: change it there.
--
-- The store of a simulated host: one SQLite file, shared by every process that uses the host.
--
-- What stands here is the host's inventory, its settings, its traffic and its clock. Counters do not stand here: they
-- follow from the traffic and the clock. Each change that bears on how traffic counts closes a segment: the counts so
-- far go to `base` and counting goes on from there, in the same transaction. Therefore:
--
--   * a new store is made by running this file and then plain INSERTs, in journal mode WAL, under a temporary name that
--     is linked to the final name when it is complete;
--   * a store in use is changed through the stand-ins' Apply (session.h), which closes the segment, runs the statements
--     and commits, or changes nothing and answers a status other than 0. `fault` and `log` may be written directly,
--     they bear on no count.
--
-- Times ending in _ms are host time in milliseconds: the host's clock starts at 0 when it boots. Numbers that a C
-- program holds as uint64_t stand here as the signed number of the same 64 bits.

PRAGMA application_id = 0x52594e53;
PRAGMA user_version = 2;

-- One row.
CREATE TABLE host (
    id                   INTEGER PRIMARY KEY CHECK (id = 1),
    -- the host's name
    name                 TEXT    NOT NULL CHECK (length(CAST(name AS BLOB)) BETWEEN 1 AND 63),
    -- what it was made from; shown only
    profile              TEXT    NOT NULL CHECK (length(CAST(profile AS BLOB)) BETWEEN 0 AND 65536),
    -- a line about it; shown only
    description          TEXT    NOT NULL DEFAULT '' CHECK (length(CAST(description AS BLOB)) BETWEEN 0 AND 65536),
    -- what is made up follows from it
    seed                 INTEGER NOT NULL DEFAULT 1 CHECK (seed BETWEEN 0 AND 9223372036854775807),
    -- whole seconds that an idle flow stays in the table
    flow_timeout_s       INTEGER NOT NULL DEFAULT 10 CHECK (flow_timeout_s BETWEEN 0 AND 4294967295),
    -- history: flows idle since before this have left the table
    flow_floor_ms        INTEGER NOT NULL DEFAULT 0 CHECK (flow_floor_ms BETWEEN 0 AND 4611686018427),
    -- history: the packet buffers are set up
    fastslabs            INTEGER NOT NULL DEFAULT 0 CHECK (fastslabs BETWEEN 0 AND 4294967295),
    -- since when counting goes on from base
    segment_ms           INTEGER NOT NULL DEFAULT 0 CHECK (segment_ms BETWEEN 0 AND 4611686018427)
) STRICT;

-- One row, the only source of time. Host time is base_host_ns while frozen, else base_host_ns + (wall time -
-- base_wall_ns) * speed_permille / 1000. It never goes back: whoever writes this row writes a host time at or after
-- the present one.
CREATE TABLE clock (
    id                   INTEGER PRIMARY KEY CHECK (id = 1),
    -- host time to begin with
    base_host_ns         INTEGER NOT NULL DEFAULT 0 CHECK (base_host_ns BETWEEN 0 AND 4611686018427387904),
    -- seconds of host time a second (permille)
    speed_permille       INTEGER NOT NULL DEFAULT 1000 CHECK (speed_permille BETWEEN 1 AND 1000000000),
    -- the clock stands
    mode                 TEXT    NOT NULL DEFAULT 'run' CHECK (mode IN ('run', 'freeze')),
    -- wall time at base_host_ns; 0: set it at the next opening
    base_wall_ns         INTEGER NOT NULL DEFAULT 0 CHECK (base_wall_ns BETWEEN 0 AND 4611686018427387904)
) STRICT;

-- One row. The balancer looks every period_ms of host time.
CREATE TABLE balancer (
    id                   INTEGER PRIMARY KEY CHECK (id = 1),
    -- how often the balancer looks
    period_ms            INTEGER NOT NULL DEFAULT 5000 CHECK (period_ms BETWEEN 100 AND 4611686018427),
    -- when it last looked
    tick_ms              INTEGER NOT NULL DEFAULT 0 CHECK (tick_ms BETWEEN 0 AND 4611686018427),
    -- belongs to the stand-ins
    state                BLOB    NOT NULL DEFAULT x'' CHECK (length(state) BETWEEN 0 AND 16777216)
) STRICT;

-- The balancer's weights, in the platform's order.
CREATE TABLE weight (
    -- in the platform's order
    position             INTEGER PRIMARY KEY CHECK (position BETWEEN 0 AND 7),
    value                INTEGER NOT NULL CHECK (value BETWEEN 0 AND 4294967295),
    default_value        INTEGER NOT NULL CHECK (default_value BETWEEN 0 AND 4294967295)
) STRICT;

-- A core that forwards packets.
CREATE TABLE lcore (
    lcore                INTEGER PRIMARY KEY CHECK (lcore BETWEEN 0 AND 63),
    node                 INTEGER NOT NULL CHECK (node BETWEEN 0 AND 7),
    -- fast-path packets a second that each core has time for, with a burst size of 32
    packets_per_s        INTEGER NOT NULL DEFAULT 1000000 CHECK (packets_per_s BETWEEN 1000 AND 1000000000)
) STRICT;

-- A network card.
CREATE TABLE nic (
    name                 TEXT    NOT NULL CHECK (length(CAST(name AS BLOB)) BETWEEN 1 AND 31),
    -- the NUMA node it is plugged into
    node                 INTEGER NOT NULL CHECK (node BETWEEN 0 AND 7),
    -- the node whose cores serve it
    affinity             INTEGER NOT NULL CHECK (affinity BETWEEN 0 AND 4294967295),
    -- bits a second
    link_mbps            INTEGER NOT NULL DEFAULT 25000 CHECK (link_mbps BETWEEN 1 AND 1000000),
    -- its driver has private statistics
    driver_text          INTEGER NOT NULL DEFAULT 1 CHECK (driver_text BETWEEN 0 AND 1),
    -- frames received damaged, of a million
    crc_ppm              INTEGER NOT NULL DEFAULT 0 CHECK (crc_ppm BETWEEN 0 AND 1000000),
    -- frames dropped in each direction, of a million
    drop_ppm             INTEGER NOT NULL DEFAULT 0 CHECK (drop_ppm BETWEEN 0 AND 1000000),
    -- offload level
    fpo_level            INTEGER NOT NULL DEFAULT 0 CHECK (fpo_level BETWEEN 0 AND 3),
    -- what it says of its offload: GetFPOUplinkStatus shows it
    fpo_groups           INTEGER NOT NULL DEFAULT 0 CHECK (fpo_groups BETWEEN 0 AND 4294967295),
    -- what it says of its offload: GetFPOUplinkStatus shows it
    fpo_priorities       INTEGER NOT NULL DEFAULT 0 CHECK (fpo_priorities BETWEEN 0 AND 4294967295),
    -- what it says of its offload: GetFPOUplinkStatus shows it
    fpo_mark_bits        INTEGER NOT NULL DEFAULT 0 CHECK (fpo_mark_bits BETWEEN 0 AND 4294967295),
    -- what it says of its offload: GetFPOUplinkStatus shows it
    fpo_flows            INTEGER NOT NULL DEFAULT 0 CHECK (fpo_flows BETWEEN 0 AND 4294967295),
    -- what it says of its offload: GetFPOUplinkStatus shows it
    fpo_counters         INTEGER NOT NULL DEFAULT 0 CHECK (fpo_counters BETWEEN 0 AND 4294967295),
    -- what it says of its offload: GetFPOUplinkStatus shows it
    fpo_key_bits         INTEGER NOT NULL DEFAULT 0 CHECK (fpo_key_bits BETWEEN 0 AND 4294967295),
    -- what it says of its offload: GetFPOUplinkStatus shows it
    fpo_dec_ttl          INTEGER NOT NULL DEFAULT 0 CHECK (fpo_dec_ttl BETWEEN 0 AND 4294967295),
    -- what it says of its offload: GetFPOUplinkStatus shows it
    fpo_actions          INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY (name)
) STRICT;

-- A distributed switch, as the switch-state library knows it. What it knows of it besides stands in `prop`, its
-- portset name and its alias included.
CREATE TABLE dvs (
    -- its identifier
    switch_id            TEXT    NOT NULL CHECK (length(CAST(switch_id AS BLOB)) BETWEEN 1 AND 63),
    -- what scripts call it
    alias                TEXT    NOT NULL CHECK (length(CAST(alias AS BLOB)) BETWEEN 1 AND 127),
    -- its class
    class                TEXT    NOT NULL DEFAULT 'vswitch' CHECK (length(CAST(class AS BLOB)) BETWEEN 1 AND 127),
    PRIMARY KEY (switch_id),
    UNIQUE (alias)
) STRICT;

-- Properties, their values as they are: a wrong version or length is kept.
CREATE TABLE prop (
    scope                TEXT    NOT NULL CHECK (scope IN ('host', 'global', 'port')),
    switch_id            TEXT    NOT NULL CHECK (length(CAST(switch_id AS BLOB)) BETWEEN 1 AND 63),
    -- the text of port.dvport for a port's property
    port                 TEXT    NOT NULL CHECK (length(CAST(port AS BLOB)) BETWEEN 0 AND 65536),
    key                  TEXT    NOT NULL CHECK (length(CAST(key AS BLOB)) BETWEEN 0 AND 65536),
    -- as it is: a wrong version or length is kept
    value                BLOB    NOT NULL CHECK (length(value) BETWEEN 0 AND 16777216),
    PRIMARY KEY (scope, switch_id, port, key),
    FOREIGN KEY (switch_id) REFERENCES dvs ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

-- A switch of the datapath. burst_size, numa_team and lb_* hold while the distributed switch has no property for
-- them.
CREATE TABLE sw (
    sw                   INTEGER PRIMARY KEY CHECK (sw BETWEEN 0 AND 15),
    -- its portset name, also kept as its portset property; without it there is no such property
    name                 TEXT    NOT NULL CHECK (length(CAST(name AS BLOB)) BETWEEN 1 AND 127),
    -- frames larger than this and 18 are refused
    mtu                  INTEGER NOT NULL DEFAULT 1500 CHECK (mtu BETWEEN 0 AND 4294967295),
    -- what ListSwitches says of it
    max_ports            INTEGER NOT NULL DEFAULT 128 CHECK (max_ports BETWEEN 0 AND 128),
    -- large receive offload, as last set for the whole switch
    lro                  INTEGER NOT NULL DEFAULT 1 CHECK (lro BETWEEN 0 AND 4294967295),
    -- false: all goes by the slow path
    flow_cache           INTEGER NOT NULL DEFAULT 1 CHECK (flow_cache BETWEEN 0 AND 1),
    -- the log says that a real host would stop
    panic_on_tx_hang     INTEGER NOT NULL DEFAULT 0 CHECK (panic_on_tx_hang BETWEEN 0 AND 4294967295),
    -- false: its uplinks learn no addresses
    uplink_mac_learn     INTEGER NOT NULL DEFAULT 1 CHECK (uplink_mac_learn BETWEEN 0 AND 4294967295),
    -- addresses that it learns at most
    mac_limit            INTEGER NOT NULL DEFAULT 65536 CHECK (mac_limit BETWEEN 0 AND 4294967295),
    -- the datapath's own burst size; stored goes before it
    burst_size           INTEGER NOT NULL DEFAULT 32 CHECK (burst_size BETWEEN 0 AND 4294967295),
    -- uplinks on the sender's node go first
    numa_team            INTEGER NOT NULL DEFAULT 0 CHECK (numa_team BETWEEN 0 AND 4294967295),
    -- what the balancer goes by: load, ports, or nothing
    lb_metric            INTEGER NOT NULL DEFAULT 1 CHECK (lb_metric BETWEEN 0 AND 2),
    -- percent of a core: above it ports are moved away
    lb_high              INTEGER NOT NULL DEFAULT 60 CHECK (lb_high BETWEEN 0 AND 4294967295),
    -- percent of a core: below it ports may come
    lb_low               INTEGER NOT NULL DEFAULT 40 CHECK (lb_low BETWEEN 0 AND 4294967295),
    -- percent of a core: less difference moves nothing
    lb_pause             INTEGER NOT NULL DEFAULT 10 CHECK (lb_pause BETWEEN 0 AND 4294967295),
    -- percent of a core's load: a port below it stays
    lb_sensitivity       INTEGER NOT NULL DEFAULT 5 CHECK (lb_sensitivity BETWEEN 0 AND 4294967295),
    -- history: host time of the last clearing
    flow_cleared_ms      INTEGER NOT NULL DEFAULT 0 CHECK (flow_cleared_ms BETWEEN 0 AND 4611686018427),
    -- history: host time of the last clearing
    mac_cleared_ms       INTEGER NOT NULL DEFAULT 0 CHECK (mac_cleared_ms BETWEEN 0 AND 4611686018427),
    switch_id            TEXT    NOT NULL CHECK (length(CAST(switch_id AS BLOB)) BETWEEN 1 AND 63),
    -- the cores its ports may be placed on, a bit set
    lcores               INTEGER NOT NULL DEFAULT -1,
    UNIQUE (switch_id),
    UNIQUE (name),
    FOREIGN KEY (switch_id) REFERENCES dvs
) STRICT;

-- A port. An uplink has a nic, the others have none. A core of -1: the datapath places the port when it first looks
-- (an uplink near its nic, the others in turn).
CREATE TABLE port (
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    -- its number in the switch
    port                 INTEGER NOT NULL CHECK (port BETWEEN 0 AND 127),
    -- who is connected; other parts of the description call the port so
    client               TEXT    NOT NULL DEFAULT '' CHECK (length(CAST(client AS BLOB)) BETWEEN 0 AND 127),
    -- makes it an uplink
    nic                  TEXT    CHECK (length(CAST(nic AS BLOB)) BETWEEN 1 AND 31),
    -- what is connected, as ListPorts has it
    kind                 INTEGER NOT NULL CHECK (kind BETWEEN 0 AND 4294967295),
    -- its distributed number
    dvport               INTEGER NOT NULL CHECK (dvport BETWEEN 0 AND 4294967295),
    -- false: nothing reaches it
    active               INTEGER NOT NULL DEFAULT 1 CHECK (active BETWEEN 0 AND 1),
    -- its address
    mac                  BLOB    NOT NULL CHECK (length(mac) = 6),
    -- further addresses that are learned here
    macs_behind          INTEGER NOT NULL DEFAULT 0 CHECK (macs_behind BETWEEN 0 AND 65536),
    -- addresses that it learns at most
    mac_limit            INTEGER NOT NULL DEFAULT 16384 CHECK (mac_limit BETWEEN 0 AND 4294967295),
    -- transmit queues
    tx_queues            INTEGER NOT NULL DEFAULT 1 CHECK (tx_queues BETWEEN 0 AND 32),
    -- receive queues
    rx_queues            INTEGER NOT NULL DEFAULT 1 CHECK (rx_queues BETWEEN 0 AND 32),
    -- what it receives
    filter_flags         INTEGER NOT NULL DEFAULT 11 CHECK (filter_flags BETWEEN 0 AND 4294967295),
    -- the multicast hash filter
    ladrf                INTEGER NOT NULL DEFAULT 0,
    -- the untagged VLAN
    vlan                 INTEGER NOT NULL DEFAULT 0 CHECK (vlan BETWEEN 0 AND 4095),
    -- the overlay network; 0: none
    vni                  INTEGER NOT NULL DEFAULT 0 CHECK (vni BETWEEN 0 AND 16777215),
    -- it may send from other addresses
    forged_ok            INTEGER NOT NULL DEFAULT 0 CHECK (forged_ok BETWEEN 0 AND 4294967295),
    -- shown only
    sample_rate          INTEGER NOT NULL DEFAULT 0 CHECK (sample_rate BETWEEN 0 AND 4294967295),
    -- large receive offload: four TCP frames are handed over as one
    lro                  INTEGER NOT NULL DEFAULT 1 CHECK (lro BETWEEN 0 AND 4294967295),
    -- how its packets choose an uplink: None, Single, LAG, SrcMAC, All, NoTeaming
    tx_type              INTEGER NOT NULL DEFAULT 1 CHECK (tx_type BETWEEN 0 AND 5),
    -- the core it sends on
    tx_core              INTEGER NOT NULL DEFAULT -1 CHECK (tx_core BETWEEN -1 AND 63),
    -- the core it receives on
    rx_core              INTEGER NOT NULL DEFAULT -1 CHECK (rx_core BETWEEN -1 AND 63),
    -- the balancer leaves it where it is
    pinned               INTEGER NOT NULL DEFAULT 0 CHECK (pinned BETWEEN 0 AND 4294967295),
    -- history: host time of the last clearing
    flow_cleared_ms      INTEGER NOT NULL DEFAULT 0 CHECK (flow_cleared_ms BETWEEN 0 AND 4611686018427),
    -- history: host time of the last clearing
    mac_cleared_ms       INTEGER NOT NULL DEFAULT 0 CHECK (mac_cleared_ms BETWEEN 0 AND 4611686018427),
    PRIMARY KEY (sw, port),
    UNIQUE (sw, dvport),
    UNIQUE (nic),
    FOREIGN KEY (sw) REFERENCES sw,
    FOREIGN KEY (nic) REFERENCES nic,
    CHECK ((kind = 2) = (nic IS NOT NULL))
) STRICT, WITHOUT ROWID;

-- The uplinks that a port's policy may use, in order (port numbers of the same switch).
CREATE TABLE port_uplink (
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    port                 INTEGER NOT NULL CHECK (port BETWEEN 0 AND 127),
    seq                  INTEGER NOT NULL CHECK (seq BETWEEN 0 AND 7),
    uplink               INTEGER NOT NULL CHECK (uplink BETWEEN 0 AND 4294967295),
    PRIMARY KEY (sw, port, seq),
    FOREIGN KEY (sw, port) REFERENCES port ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

-- Group addresses that a port listens to.
CREATE TABLE port_mcast (
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    port                 INTEGER NOT NULL CHECK (port BETWEEN 0 AND 127),
    seq                  INTEGER NOT NULL CHECK (seq BETWEEN 0 AND 31),
    mac                  BLOB    NOT NULL CHECK (length(mac) = 6),
    PRIMARY KEY (sw, port, seq),
    FOREIGN KEY (sw, port) REFERENCES port ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

-- Tagged VLANs of a port.
CREATE TABLE port_vlan_range (
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    port                 INTEGER NOT NULL CHECK (port BETWEEN 0 AND 127),
    seq                  INTEGER NOT NULL CHECK (seq BETWEEN 0 AND 255),
    first                INTEGER NOT NULL CHECK (first BETWEEN 0 AND 4095),
    last                 INTEGER NOT NULL CHECK (last BETWEEN 0 AND 4095),
    PRIMARY KEY (sw, port, seq),
    FOREIGN KEY (sw, port) REFERENCES port ON DELETE CASCADE,
    CHECK (first <= last)
) STRICT, WITHOUT ROWID;

-- A mirror session.
CREATE TABLE mirror (
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    -- its index
    session              INTEGER NOT NULL CHECK (session BETWEEN 0 AND 65535),
    -- shown only
    encap_vlan           INTEGER NOT NULL DEFAULT 0 CHECK (encap_vlan BETWEEN 0 AND 65535),
    -- copies are cut to so many bytes; 0: they are not
    snap_len             INTEGER NOT NULL DEFAULT 0 CHECK (snap_len BETWEEN 0 AND 65535),
    -- one packet of so many is copied
    sampling_rate        INTEGER NOT NULL DEFAULT 1 CHECK (sampling_rate BETWEEN 0 AND 65535),
    -- vlanEncap makes a copy four bytes longer; the others are only shown
    flags                INTEGER NOT NULL DEFAULT 0 CHECK (flags BETWEEN 0 AND 15),
    PRIMARY KEY (sw, session),
    FOREIGN KEY (sw) REFERENCES sw
) STRICT, WITHOUT ROWID;

-- Its ports, by what they are to it.
CREATE TABLE mirror_port (
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    session              INTEGER NOT NULL CHECK (session BETWEEN 0 AND 65535),
    role                 TEXT    NOT NULL CHECK (role IN ('in', 'out', 'dst')),
    port                 INTEGER NOT NULL CHECK (port BETWEEN 0 AND 127),
    PRIMARY KEY (sw, session, role, port),
    FOREIGN KEY (sw, session) REFERENCES mirror ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

-- Its VLANs; none: all.
CREATE TABLE mirror_vlan (
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    session              INTEGER NOT NULL CHECK (session BETWEEN 0 AND 65535),
    seq                  INTEGER NOT NULL CHECK (seq BETWEEN 0 AND 63),
    vlan                 INTEGER NOT NULL CHECK (vlan BETWEEN 0 AND 4095),
    PRIMARY KEY (sw, session, seq),
    FOREIGN KEY (sw, session) REFERENCES mirror ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

-- Entries added to and deleted from MAC tables by hand; what ports learn follows from the inventory.
CREATE TABLE mac_entry (
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    -- the port's number
    port                 INTEGER NOT NULL CHECK (port BETWEEN 0 AND 127),
    -- the address
    mac                  BLOB    NOT NULL CHECK (length(mac) = 6),
    -- its VLAN
    vlan                 INTEGER NOT NULL DEFAULT 0 CHECK (vlan BETWEEN 0 AND 4095),
    -- it was deleted by hand, not added
    present              INTEGER NOT NULL DEFAULT 1 CHECK (present BETWEEN 0 AND 1),
    -- when, in host time
    at_ms                INTEGER NOT NULL DEFAULT 0 CHECK (at_ms BETWEEN 0 AND 4611686018427),
    PRIMARY KEY (sw, port, mac, vlan),
    FOREIGN KEY (sw) REFERENCES sw
) STRICT, WITHOUT ROWID;

-- Who sends what to whom, and how much of it. Packets are an exact function of host time: with the mean rate r, r *
-- (1 + swing * wave(t)) + r * (burst - 1) while a burst lasts, where wave is a triangle of the given period between
-- -1 and 1. A share of the packets is answered by the other side.
CREATE TABLE conversation (
    id                   INTEGER PRIMARY KEY CHECK (id BETWEEN 1 AND 2147483647),
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    src_port             INTEGER NOT NULL CHECK (src_port BETWEEN 0 AND 127),
    -- NULL: leaves the host by the uplink its policy picks
    dst_port             INTEGER CHECK (dst_port BETWEEN 0 AND 127),
    -- mean packets a second of each sender, at most 1G (packets in 1000 s)
    milli_pps            INTEGER NOT NULL CHECK (milli_pps BETWEEN 0 AND 1000000000000),
    -- bytes of a frame
    size                 INTEGER NOT NULL DEFAULT 512 CHECK (size BETWEEN 60 AND 65535),
    -- packets back for each packet (permille)
    reply_permille       INTEGER NOT NULL DEFAULT 0 CHECK (reply_permille BETWEEN 0 AND 10000),
    -- bytes of a frame back
    reply_size           INTEGER NOT NULL DEFAULT 66 CHECK (reply_size BETWEEN 60 AND 65535),
    -- unicast, multicast, broadcast
    delivery             TEXT    NOT NULL DEFAULT 'unicast' CHECK (delivery IN ('unicast', 'multicast', 'broadcast')),
    -- tcp, udp, icmp, icmp6 or a number. Conversations between the same ends should differ in dport, else some of their
    -- flows have the same key
    protocol             INTEGER NOT NULL DEFAULT 6 CHECK (protocol BETWEEN 0 AND 255),
    -- source port; ICMP: its type
    src_l4               INTEGER NOT NULL DEFAULT 0 CHECK (src_l4 BETWEEN 0 AND 65535),
    -- destination port; ICMP: its code
    dst_l4               INTEGER NOT NULL DEFAULT 0 CHECK (dst_l4 BETWEEN 0 AND 65535),
    -- source address
    src_ip               BLOB    NOT NULL CHECK (length(src_ip) BETWEEN 4 AND 16),
    -- destination address
    dst_ip               BLOB    NOT NULL CHECK (length(dst_ip) BETWEEN 4 AND 16),
    -- the next hop's address
    dst_mac              BLOB    CHECK (length(dst_mac) = 6),
    -- the VLAN of its packets
    vlan                 INTEGER NOT NULL DEFAULT 0 CHECK (vlan BETWEEN 0 AND 4095),
    -- the overlay network of its packets; 0: none
    vni                  INTEGER NOT NULL DEFAULT 0 CHECK (vni BETWEEN 0 AND 16777215),
    -- lasting flows
    flows                INTEGER NOT NULL DEFAULT 1 CHECK (flows BETWEEN 1 AND 65536),
    -- packets, of a million, that open a short flow (at most 16384 live at a time, from source port 32768 on)
    churn_ppm            INTEGER NOT NULL DEFAULT 0 CHECK (churn_ppm BETWEEN 0 AND 100000),
    -- the share that always takes the slow path (permille)
    slow_permille        INTEGER NOT NULL DEFAULT 1 CHECK (slow_permille BETWEEN 0 AND 1000),
    -- share of the mean by which the rate swings, as a triangle (permille)
    swing_permille       INTEGER NOT NULL DEFAULT 0 CHECK (swing_permille BETWEEN 0 AND 1000),
    -- how long a swing takes, to 7d
    period_ms            INTEGER NOT NULL DEFAULT 86400000 CHECK (period_ms BETWEEN 1000 AND 604800000),
    -- so much later in its swing and bursts
    phase_ms             INTEGER NOT NULL DEFAULT 0 CHECK (phase_ms BETWEEN 0 AND 4611686018427),
    -- between the starts of two bursts
    burst_every_ms       INTEGER NOT NULL DEFAULT 0 CHECK (burst_every_ms BETWEEN 0 AND 4611686018427),
    -- how long each lasts
    burst_for_ms         INTEGER NOT NULL DEFAULT 0 CHECK (burst_for_ms BETWEEN 0 AND 4611686018427),
    -- the rate meanwhile, in usual rates (permille)
    burst_permille       INTEGER NOT NULL DEFAULT 1000 CHECK (burst_permille BETWEEN 1000 AND 100000),
    -- in host time
    start_ms             INTEGER NOT NULL DEFAULT 0 CHECK (start_ms BETWEEN 0 AND 4611686018427),
    -- in host time
    stop_ms              INTEGER CHECK (stop_ms BETWEEN 0 AND 4611686018427),
    -- further actions of its flows, named as in the flow table's text (DP for the valid dp value), or bits
    actions              INTEGER NOT NULL DEFAULT 0 CHECK (actions BETWEEN 0 AND 4294967295),
    -- routers on its way
    vdr                  INTEGER NOT NULL DEFAULT 0 CHECK (vdr BETWEEN 0 AND 12),
    FOREIGN KEY (sw, src_port) REFERENCES port,
    FOREIGN KEY (sw, dst_port) REFERENCES port,
    CHECK (length(dst_ip) = length(src_ip)),
    CHECK (burst_for_ms <= burst_every_ms),
    CHECK (stop_ms IS NULL OR stop_ms >= start_ms)
) STRICT;

-- A rule for calls of an operation. All conditions must hold; the first rule that holds is applied.
CREATE TABLE fault (
    id                   INTEGER PRIMARY KEY CHECK (id BETWEEN 1 AND 9223372036854775807),
    -- an operation's name, or a pattern such as Ryn_Get*
    operation            TEXT    NOT NULL CHECK (length(CAST(operation AS BLOB)) BETWEEN 1 AND 127),
    -- answered instead of the operation
    status               INTEGER CHECK (status BETWEEN 1 AND 4294967295),
    -- it waits first
    delay_ms             INTEGER NOT NULL DEFAULT 0 CHECK (delay_ms BETWEEN 0 AND 4611686018427),
    -- zero, ones, random, half: what is done to the answer's bytes
    corrupt              TEXT    CHECK (corrupt IN ('zero', 'ones', 'random', 'half')),
    -- so many matching calls pass first
    after                INTEGER NOT NULL DEFAULT 0 CHECK (after BETWEEN 0 AND 9223372036854775807),
    -- at most so many calls are touched
    times                INTEGER CHECK (times BETWEEN 1 AND 9223372036854775807),
    -- how likely a matching call is touched
    probability_ppm      INTEGER NOT NULL DEFAULT 1000000 CHECK (probability_ppm BETWEEN 0 AND 1000000),
    -- of the probability's dice
    seed                 INTEGER NOT NULL DEFAULT 1 CHECK (seed BETWEEN 0 AND 9223372036854775807),
    -- in host time
    from_ms              INTEGER CHECK (from_ms BETWEEN 0 AND 4611686018427),
    -- in host time
    until_ms             INTEGER CHECK (until_ms BETWEEN 0 AND 4611686018427),
    -- matching calls so far
    calls                INTEGER NOT NULL DEFAULT 0 CHECK (calls BETWEEN 0 AND 9223372036854775807),
    -- of these, touched
    hits                 INTEGER NOT NULL DEFAULT 0 CHECK (hits BETWEEN 0 AND 9223372036854775807)
) STRICT;

-- What a fault's calls must have as arguments, all of it.
CREATE TABLE fault_where (
    fault                INTEGER NOT NULL CHECK (fault BETWEEN 1 AND 9223372036854775807),
    seq                  INTEGER NOT NULL CHECK (seq BETWEEN 0 AND 8),
    -- an argument
    name                 TEXT    NOT NULL CHECK (name IN ('sw', 'port', 'lcore', 'scope', 'key', 'switch', 'dvport', 'alias', 'device')),
    -- what that argument, as text, must match
    glob                 TEXT    NOT NULL CHECK (length(CAST(glob AS BLOB)) BETWEEN 0 AND 65536),
    PRIMARY KEY (fault, seq),
    FOREIGN KEY (fault) REFERENCES fault ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

-- Something that happens to the host from from_ms (at or after the present) until until_ms (NULL: no end). target: a
-- NIC's name, a core's or switch's number, or 'SWITCH/PORT'.
CREATE TABLE event (
    id                   INTEGER PRIMARY KEY CHECK (id BETWEEN 1 AND 9223372036854775807),
    -- which one, see [Events](#events)
    kind                 TEXT    NOT NULL CHECK (kind IN ('uplink-down', 'uplink-hang', 'core-stuck', 'mac-limit', 'counters-near-wrap')),
    target               TEXT    NOT NULL CHECK (length(CAST(target AS BLOB)) BETWEEN 1 AND 127),
    -- of a limit or a size
    value                INTEGER CHECK (value BETWEEN 0 AND 4294967295),
    -- in host time
    from_ms              INTEGER NOT NULL DEFAULT 0 CHECK (from_ms BETWEEN 0 AND 4611686018427),
    -- in host time
    until_ms             INTEGER CHECK (until_ms BETWEEN 0 AND 4611686018427),
    -- 0 ahead, 1 on, 2 over
    started              INTEGER NOT NULL DEFAULT 0 CHECK (started BETWEEN 0 AND 2),
    CHECK (until_ms IS NULL OR until_ms > from_ms)
) STRICT;

-- The counts at host.segment_ms. Belongs to the stand-ins; a new store has no rows here.
CREATE TABLE base (
    kind                 TEXT    NOT NULL CHECK (kind IN ('port', 'rx', 'tx', 'flow', 'core', 'passed', 'lost')),
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    id                   INTEGER NOT NULL CHECK (id BETWEEN 0 AND 2147483647),
    -- little-endian unsigned 64-bit words
    counts               BLOB    NOT NULL CHECK (length(counts) BETWEEN 0 AND 16777216),
    PRIMARY KEY (kind, sw, id)
) STRICT, WITHOUT ROWID;

-- Moves of the balancer, the latest few hundred.
CREATE TABLE move (
    id                   INTEGER PRIMARY KEY CHECK (id BETWEEN 1 AND 9223372036854775807),
    at_ms                INTEGER NOT NULL CHECK (at_ms BETWEEN 0 AND 4611686018427),
    sw                   INTEGER NOT NULL CHECK (sw BETWEEN 0 AND 15),
    port                 INTEGER NOT NULL CHECK (port BETWEEN 0 AND 127),
    from_core            INTEGER NOT NULL CHECK (from_core BETWEEN 0 AND 63),
    to_core              INTEGER NOT NULL CHECK (to_core BETWEEN 0 AND 63)
) STRICT;

-- Every hit of a fault, and every start and end of an event.
CREATE TABLE log (
    id                   INTEGER PRIMARY KEY CHECK (id BETWEEN 1 AND 9223372036854775807),
    at_ms                INTEGER NOT NULL CHECK (at_ms BETWEEN 0 AND 4611686018427),
    pid                  INTEGER NOT NULL CHECK (pid BETWEEN 0 AND 9223372036854775807),
    -- or the event's kind
    operation            TEXT    NOT NULL CHECK (length(CAST(operation AS BLOB)) BETWEEN 0 AND 65536),
    arguments            TEXT    NOT NULL DEFAULT '' CHECK (length(CAST(arguments AS BLOB)) BETWEEN 0 AND 65536),
    -- 'status 0x0BAD0007', 'delay 20 ms', ...
    what                 TEXT    NOT NULL CHECK (length(CAST(what AS BLOB)) BETWEEN 0 AND 65536)
) STRICT;

-- The description that the host was made from, for a reset: belongs to the tool.
CREATE TABLE origin (
    id                   INTEGER PRIMARY KEY CHECK (id = 1),
    -- '': the shipped profile that host.profile names
    yaml                 TEXT    NOT NULL DEFAULT '' CHECK (length(CAST(yaml AS BLOB)) BETWEEN 0 AND 1073741824),
    -- another one than the description's
    seed                 INTEGER CHECK (seed BETWEEN 0 AND 9223372036854775807)
) STRICT;
