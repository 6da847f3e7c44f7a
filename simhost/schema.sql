-- The store of a simulated host: one SQLite file, shared by every process that uses the host.
--
-- What stands here is the host's inventory, its settings, its traffic and its clock. Counters do not stand here: they
-- follow from the traffic and the clock. Each change that bears on how traffic counts closes a segment: the counts so
-- far go to `base` and counting goes on from there, in the same transaction. Therefore:
--
--   * a new store is made by running this file and then plain INSERTs, in journal mode WAL, under a temporary name that
--     is linked to the final name when it is complete;
--   * a store in use is changed through the function that libryn.so exports for it,
--         uint32_t ryn_sim_apply(const char* sql);
--     which closes the segment, runs the statements (separated by semicolons) and commits, or changes nothing and
--     answers a status other than 0. `fault` and `log` may be written directly, they bear on no count;
--   * `int64_t ryn_sim_now_ms(void)` answers the host's time (-1: the store cannot be opened).
--
-- Times ending in _ms are host time in milliseconds: the host's clock starts at 0 when it boots. Numbers that a C
-- program holds as uint64_t stand here as the signed number of the same 64 bits.

PRAGMA application_id = 0x52594e53;
PRAGMA user_version = 1;

-- One row. segment_ms: since when counting goes on from `base`.
CREATE TABLE host (
    id                   INTEGER PRIMARY KEY CHECK (id = 1),
    name                 TEXT    NOT NULL,
    profile              TEXT    NOT NULL DEFAULT '',            -- what it was made from, and a line about it; shown by
    description          TEXT    NOT NULL DEFAULT '',            -- the tool only
    seed                 INTEGER NOT NULL DEFAULT 1,
    flow_timeout_s       INTEGER NOT NULL DEFAULT 10 CHECK (flow_timeout_s BETWEEN 0 AND 4294967295),
    flow_floor_ms        INTEGER NOT NULL DEFAULT 0, -- flows idle since before this have left the table for good
    fastslabs            INTEGER NOT NULL DEFAULT 0, -- the packet buffers' fast slabs are set up
    segment_ms           INTEGER NOT NULL DEFAULT 0
) STRICT;

-- One row, the only source of time. Host time is base_host_ns while frozen, else
-- base_host_ns + (wall time - base_wall_ns) * speed_permille / 1000. A base_wall_ns of 0 means: set it at the next
-- opening. It never goes back: whoever writes this row writes a host time at or after the present one (freezing a clock
-- that runs, 10 ms of wall time after it, so that no reader has already seen a later time).
CREATE TABLE clock (
    id                   INTEGER PRIMARY KEY CHECK (id = 1),
    mode                 TEXT    NOT NULL DEFAULT 'run' CHECK (mode IN ('run', 'freeze')),
    base_wall_ns         INTEGER NOT NULL DEFAULT 0,
    base_host_ns         INTEGER NOT NULL DEFAULT 0,
    speed_permille       INTEGER NOT NULL DEFAULT 1000 CHECK (speed_permille > 0)
) STRICT;

-- Hardware ------------------------------------------------------------------------------------------------------------

CREATE TABLE lcore (
    lcore                INTEGER PRIMARY KEY CHECK (lcore BETWEEN 0 AND 63),
    node                 INTEGER NOT NULL CHECK (node >= 0),
    packets_per_s        INTEGER NOT NULL DEFAULT 1000000 CHECK (packets_per_s BETWEEN 1000 AND 1000000000)
) STRICT;                                                        -- ^ fast-path packets with a burst size of 32

CREATE TABLE nic (
    name                 TEXT    PRIMARY KEY CHECK (length(CAST(name AS BLOB)) BETWEEN 1 AND 31),
    node                 INTEGER NOT NULL,                       -- the NUMA node it is plugged into
    affinity             INTEGER NOT NULL,                       -- the node whose cores serve it
    link_mbps            INTEGER NOT NULL DEFAULT 25000,
    driver_text          INTEGER NOT NULL DEFAULT 1,             -- its driver has private statistics
    crc_ppm              INTEGER NOT NULL DEFAULT 0,             -- frames received damaged, of a million
    drop_ppm             INTEGER NOT NULL DEFAULT 0,             -- frames dropped in each direction, of a million
    fpo_level            INTEGER NOT NULL DEFAULT 0,             -- 1 Model 1 Level 1, 2 Model 1 Level 2, 3 Model 2
    fpo_groups           INTEGER NOT NULL DEFAULT 0,
    fpo_priorities       INTEGER NOT NULL DEFAULT 0,
    fpo_mark_bits        INTEGER NOT NULL DEFAULT 0,
    fpo_flows            INTEGER NOT NULL DEFAULT 0,
    fpo_counters         INTEGER NOT NULL DEFAULT 0,
    fpo_key_bits         INTEGER NOT NULL DEFAULT 0,
    fpo_dec_ttl          INTEGER NOT NULL DEFAULT 0,
    fpo_actions          INTEGER NOT NULL DEFAULT 0              -- a bit set of 64
) STRICT;

-- Switches and ports --------------------------------------------------------------------------------------------------

-- A distributed switch, as the switch-state library knows it. What it knows of it besides stands in `prop`, its portset
-- name ("com.talvor.common.host.portset", a host property) and its alias ("com.talvor.common.alias", global) included.
CREATE TABLE dvs (
    switch_id            TEXT    PRIMARY KEY CHECK (length(CAST(switch_id AS BLOB)) BETWEEN 1 AND 63),
    alias                TEXT    NOT NULL UNIQUE,                -- what a look-up by alias compares with
    class                TEXT    NOT NULL DEFAULT 'vswitch'
) STRICT;

-- Properties, their values as they are: a wrong version or length is kept. port: the text of port.dvport for a port's
-- property, else ''.
CREATE TABLE prop (
    scope                TEXT    NOT NULL CHECK (scope IN ('host', 'global', 'port')),
    switch_id            TEXT    NOT NULL REFERENCES dvs ON DELETE CASCADE,
    port                 TEXT    NOT NULL DEFAULT '',
    key                  TEXT    NOT NULL,
    value                BLOB    NOT NULL,
    PRIMARY KEY (scope, switch_id, port, key)
) STRICT, WITHOUT ROWID;

-- A switch of the datapath. burst_size, numa_team and lb_* hold while the distributed switch has no property for them.
CREATE TABLE sw (
    sw                   INTEGER PRIMARY KEY CHECK (sw BETWEEN 0 AND 15),
    switch_id            TEXT    NOT NULL UNIQUE REFERENCES dvs,
    name                 TEXT    NOT NULL UNIQUE CHECK (length(CAST(name AS BLOB)) BETWEEN 1 AND 127), -- its portset
    max_ports            INTEGER NOT NULL DEFAULT 128 CHECK (max_ports BETWEEN 0 AND 128),
    mtu                  INTEGER NOT NULL DEFAULT 1500,
    lcores               INTEGER NOT NULL DEFAULT -1,            -- the cores its ports may be placed on, a bit set
    lro                  INTEGER NOT NULL DEFAULT 1,             -- as last set for the whole switch
    flow_cache           INTEGER NOT NULL DEFAULT 1 CHECK (flow_cache IN (0, 1)),
    panic_on_tx_hang     INTEGER NOT NULL DEFAULT 0,
    uplink_mac_learn     INTEGER NOT NULL DEFAULT 1,
    mac_limit            INTEGER NOT NULL DEFAULT 65536,
    burst_size           INTEGER NOT NULL DEFAULT 32,
    numa_team            INTEGER NOT NULL DEFAULT 0,
    lb_metric            INTEGER NOT NULL DEFAULT 1,             -- 0 none, 1 cpu, 2 count
    lb_high              INTEGER NOT NULL DEFAULT 60,            -- percent of a core
    lb_low               INTEGER NOT NULL DEFAULT 40,
    lb_pause             INTEGER NOT NULL DEFAULT 10,            -- percent of a core
    lb_sensitivity       INTEGER NOT NULL DEFAULT 5,             -- percent of a port's load
    flow_cleared_ms      INTEGER NOT NULL DEFAULT 0,
    mac_cleared_ms       INTEGER NOT NULL DEFAULT 0
) STRICT;

-- A port. kind: 1 VNIC, 2 UPLINK, 3 GENERIC, 4 QOBNIC; an uplink has a nic, the others have none.
-- A core of -1: the datapath places the port when it first looks (an uplink near its nic, the others in turn).
CREATE TABLE port (
    sw                   INTEGER NOT NULL REFERENCES sw,
    port                 INTEGER NOT NULL CHECK (port BETWEEN 0 AND 127),
    dvport               INTEGER NOT NULL CHECK (dvport BETWEEN 0 AND 4294967295), -- the distributed port's number
    kind                 INTEGER NOT NULL,
    nic                  TEXT    UNIQUE REFERENCES nic,
    client               TEXT    NOT NULL DEFAULT '',            -- who is connected; shown by the tool only
    active               INTEGER NOT NULL DEFAULT 1 CHECK (active IN (0, 1)),
    mac                  BLOB    NOT NULL CHECK (length(mac) = 6),
    macs_behind          INTEGER NOT NULL DEFAULT 0,             -- further addresses that are learned here
    tx_queues            INTEGER NOT NULL DEFAULT 1 CHECK (tx_queues BETWEEN 0 AND 32),
    rx_queues            INTEGER NOT NULL DEFAULT 1 CHECK (rx_queues BETWEEN 0 AND 32),
    filter_flags         INTEGER NOT NULL DEFAULT 11,            -- unicast, multicast, broadcast
    ladrf                INTEGER NOT NULL DEFAULT 0,
    vlan                 INTEGER NOT NULL DEFAULT 0,
    forged_ok            INTEGER NOT NULL DEFAULT 0,
    vni                  INTEGER NOT NULL DEFAULT 0,
    sample_rate          INTEGER NOT NULL DEFAULT 0,
    lro                  INTEGER NOT NULL DEFAULT 1,
    tx_type              INTEGER NOT NULL DEFAULT 1,             -- 0 None 1 Single 2 LAG 3 SrcMAC 4 All 5 NoTeaming
    mac_limit            INTEGER NOT NULL DEFAULT 16384,
    tx_core              INTEGER NOT NULL DEFAULT -1,
    rx_core              INTEGER NOT NULL DEFAULT -1,
    pinned               INTEGER NOT NULL DEFAULT 0,             -- the balancer leaves it where it is
    flow_cleared_ms      INTEGER NOT NULL DEFAULT 0,
    mac_cleared_ms       INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY (sw, port),
    UNIQUE (sw, dvport),
    CHECK ((kind = 2) = (nic IS NOT NULL))
) STRICT, WITHOUT ROWID;

-- The uplinks that a port's policy may use, in order (port numbers of the same switch).
CREATE TABLE port_uplink (
    sw INTEGER NOT NULL, port INTEGER NOT NULL, seq INTEGER NOT NULL CHECK (seq BETWEEN 0 AND 7),
    uplink               INTEGER NOT NULL CHECK (uplink BETWEEN 0 AND 4294967295),
    PRIMARY KEY (sw, port, seq), FOREIGN KEY (sw, port) REFERENCES port ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

CREATE TABLE port_mcast (
    sw INTEGER NOT NULL, port INTEGER NOT NULL, seq INTEGER NOT NULL CHECK (seq BETWEEN 0 AND 31),
    mac                  BLOB    NOT NULL CHECK (length(mac) = 6),
    PRIMARY KEY (sw, port, seq), FOREIGN KEY (sw, port) REFERENCES port ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

CREATE TABLE port_vlan_range (
    sw INTEGER NOT NULL, port INTEGER NOT NULL, seq INTEGER NOT NULL CHECK (seq BETWEEN 0 AND 255),
    first                INTEGER NOT NULL CHECK (first BETWEEN 0 AND 4095),
    last                 INTEGER NOT NULL CHECK (last BETWEEN first AND 4095),
    PRIMARY KEY (sw, port, seq), FOREIGN KEY (sw, port) REFERENCES port ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

CREATE TABLE mirror (
    sw                   INTEGER NOT NULL REFERENCES sw,
    session              INTEGER NOT NULL CHECK (session BETWEEN 0 AND 65535),
    encap_vlan           INTEGER NOT NULL DEFAULT 0,
    snap_len             INTEGER NOT NULL DEFAULT 0,
    sampling_rate        INTEGER NOT NULL DEFAULT 1,
    flags                INTEGER NOT NULL DEFAULT 0,             -- 1 noInput, 2 noOutput, 4 vlanEncap, 8 OrigVlan
    PRIMARY KEY (sw, session)
) STRICT, WITHOUT ROWID;

CREATE TABLE mirror_port (
    sw INTEGER NOT NULL, session INTEGER NOT NULL,
    role                 TEXT    NOT NULL CHECK (role IN ('in', 'out', 'dst')),
    port                 INTEGER NOT NULL CHECK (port BETWEEN 0 AND 127),
    PRIMARY KEY (sw, session, role, port), FOREIGN KEY (sw, session) REFERENCES mirror ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

CREATE TABLE mirror_vlan (
    sw INTEGER NOT NULL, session INTEGER NOT NULL, seq INTEGER NOT NULL,
    vlan                 INTEGER NOT NULL CHECK (vlan BETWEEN 0 AND 4095),
    PRIMARY KEY (sw, session, seq), FOREIGN KEY (sw, session) REFERENCES mirror ON DELETE CASCADE
) STRICT, WITHOUT ROWID;

-- Entries added to and deleted from MAC tables by hand; what ports learn follows from the inventory.
CREATE TABLE mac_entry (
    sw                   INTEGER NOT NULL REFERENCES sw,
    port                 INTEGER NOT NULL,
    mac                  BLOB    NOT NULL CHECK (length(mac) = 6),
    vlan                 INTEGER NOT NULL,
    present              INTEGER NOT NULL CHECK (present IN (0, 1)),
    at_ms                INTEGER NOT NULL,
    PRIMARY KEY (sw, port, mac, vlan)
) STRICT, WITHOUT ROWID;

-- Traffic -------------------------------------------------------------------------------------------------------------

-- Who sends what to whom, and how much of it. Packets are an exact function of host time: with the mean rate r,
--     r * (1 + swing * wave(t)) + r * (burst - 1) while a burst lasts
-- where wave is a triangle of the given period between -1 and 1. A share of the packets is answered by the other side.
CREATE TABLE conversation (
    id                   INTEGER PRIMARY KEY,
    sw                   INTEGER NOT NULL REFERENCES sw,
    src_port             INTEGER NOT NULL,
    dst_port             INTEGER,                                -- NULL: leaves the host by the uplink its policy picks
    delivery             TEXT    NOT NULL DEFAULT 'unicast'
                                 CHECK (delivery IN ('unicast', 'multicast', 'broadcast')),
    protocol             INTEGER NOT NULL DEFAULT 6 CHECK (protocol BETWEEN 0 AND 255),
    src_ip               BLOB    NOT NULL CHECK (length(src_ip) IN (4, 16)),
    dst_ip               BLOB    NOT NULL CHECK (length(dst_ip) = length(src_ip)),
    src_l4               INTEGER NOT NULL DEFAULT 0 CHECK (src_l4 BETWEEN 0 AND 65535), -- of the first flow; ICMP: type
    dst_l4               INTEGER NOT NULL DEFAULT 0 CHECK (dst_l4 BETWEEN 0 AND 65535), -- ICMP: code
    dst_mac              BLOB    CHECK (length(dst_mac) = 6),    -- the next hop's; NULL: the other port's, or made up
    vlan                 INTEGER NOT NULL DEFAULT 0 CHECK (vlan BETWEEN 0 AND 4095),
    vni                  INTEGER NOT NULL DEFAULT 0 CHECK (vni BETWEEN 0 AND 16777215), -- 0: not in an overlay
    milli_pps            INTEGER NOT NULL CHECK (milli_pps BETWEEN 0 AND 1000000000000), -- mean packets per 1000 s
    reply_permille       INTEGER NOT NULL DEFAULT 0 CHECK (reply_permille BETWEEN 0 AND 10000),
    size                 INTEGER NOT NULL CHECK (size BETWEEN 60 AND 65535),            -- bytes of a frame
    reply_size           INTEGER NOT NULL DEFAULT 66 CHECK (reply_size BETWEEN 60 AND 65535),
    flows                INTEGER NOT NULL DEFAULT 1 CHECK (flows BETWEEN 1 AND 65536),  -- lasting flows
    churn_ppm            INTEGER NOT NULL DEFAULT 0 CHECK (churn_ppm BETWEEN 0 AND 100000), -- of 10^6 packets, those
                                                                 -- that open a short flow of their own
    slow_permille        INTEGER NOT NULL DEFAULT 1 CHECK (slow_permille BETWEEN 0 AND 1000), -- always by the slow path
    swing_permille       INTEGER NOT NULL DEFAULT 0 CHECK (swing_permille BETWEEN 0 AND 1000),
    period_ms            INTEGER NOT NULL DEFAULT 86400000 CHECK (period_ms BETWEEN 1000 AND 604800000),
    phase_ms             INTEGER NOT NULL DEFAULT 0 CHECK (phase_ms >= 0),
    burst_every_ms       INTEGER NOT NULL DEFAULT 0 CHECK (burst_every_ms >= 0),        -- 0: no bursts
    burst_for_ms         INTEGER NOT NULL DEFAULT 0 CHECK (burst_for_ms BETWEEN 0 AND burst_every_ms),
    burst_permille       INTEGER NOT NULL DEFAULT 1000 CHECK (burst_permille BETWEEN 1000 AND 100000),
    start_ms             INTEGER NOT NULL DEFAULT 0 CHECK (start_ms >= 0),
    stop_ms              INTEGER CHECK (stop_ms >= start_ms),
    actions              INTEGER NOT NULL DEFAULT 0 CHECK (actions BETWEEN 0 AND 4294967295), -- added to its flows' own
    vdr                  INTEGER NOT NULL DEFAULT 0 CHECK (vdr BETWEEN 0 AND 12),       -- routers on its way
    FOREIGN KEY (sw, src_port) REFERENCES port,
    FOREIGN KEY (sw, dst_port) REFERENCES port
) STRICT;

-- The counts at host.segment_ms. Belongs to the stand-ins; a new store has no rows here.
CREATE TABLE base (
    kind                 TEXT    NOT NULL,
    sw                   INTEGER NOT NULL,
    id                   INTEGER NOT NULL,
    counts               BLOB    NOT NULL,                       -- little-endian unsigned 64-bit words
    PRIMARY KEY (kind, sw, id)
) STRICT, WITHOUT ROWID;

-- Load balancer -------------------------------------------------------------------------------------------------------

CREATE TABLE weight (
    position             INTEGER PRIMARY KEY CHECK (position BETWEEN 0 AND 7),
    value                INTEGER NOT NULL CHECK (value BETWEEN 0 AND 4294967295),
    default_value        INTEGER NOT NULL CHECK (default_value BETWEEN 0 AND 4294967295)
) STRICT;

-- One row. The balancer looks every period_ms of host time; the rest belongs to the stand-ins.
CREATE TABLE balancer (
    id                   INTEGER PRIMARY KEY CHECK (id = 1),
    period_ms            INTEGER NOT NULL DEFAULT 5000 CHECK (period_ms >= 100),
    tick_ms              INTEGER NOT NULL DEFAULT 0,             -- when it last looked
    state                BLOB    NOT NULL DEFAULT x''
) STRICT;

-- Moves of the balancer, the latest few hundred.
CREATE TABLE move (
    id                   INTEGER PRIMARY KEY,
    at_ms                INTEGER NOT NULL,
    sw                   INTEGER NOT NULL,
    port                 INTEGER NOT NULL,
    from_core            INTEGER NOT NULL,
    to_core              INTEGER NOT NULL
) STRICT;

-- What goes wrong -----------------------------------------------------------------------------------------------------

-- A rule for calls of an operation. All conditions must hold; the first rule that holds is applied.
CREATE TABLE fault (
    id                   INTEGER PRIMARY KEY,
    operation            TEXT    NOT NULL,                       -- a glob: 'Ryn_GetLRO', 'DVSQOB_*'
    where_name           TEXT,                                   -- an argument: 'sw', 'port', 'lcore', 'scope', 'key',
                                                                 -- 'switch', 'dvport', 'alias' or 'device'
    where_glob           TEXT,                                   -- what that argument, as text, must match
    status               INTEGER CHECK (status BETWEEN 1 AND 4294967295), -- answered instead; NULL: the call is made
    delay_ms             INTEGER NOT NULL DEFAULT 0 CHECK (delay_ms >= 0),
    corrupt              TEXT    CHECK (corrupt IN ('zero', 'ones', 'random', 'half')), -- done to the answer's bytes
    after                INTEGER NOT NULL DEFAULT 0 CHECK (after >= 0), -- so many matching calls pass untouched
    times                INTEGER CHECK (times >= 1),             -- NULL: for ever
    probability_ppm      INTEGER NOT NULL DEFAULT 1000000 CHECK (probability_ppm BETWEEN 0 AND 1000000),
    seed                 INTEGER NOT NULL DEFAULT 1,
    from_ms              INTEGER,
    until_ms             INTEGER,
    calls                INTEGER NOT NULL DEFAULT 0,             -- matching calls so far
    hits                 INTEGER NOT NULL DEFAULT 0              -- of these, touched
) STRICT;

-- Something that happens to the host from from_ms (at or after the present) until until_ms (NULL: for ever).
--   uplink-down         target: a nic's name. Its link is down; policies choose among the others.
--   uplink-hang         target: a nic's name. The link is up, but nothing is sent.
--   core-stuck          target: a core's number. It works on nothing; what reaches it is dropped.
--   mac-limit           target: a switch number. Its limit is `value` (default 16) entries, and so each port's.
--   counters-near-wrap  target: 'SW/PORT'. Once, at from_ms: the port's counters go up to a little below 2^value
--                       (value: 32, the default, or 63 or 64).
CREATE TABLE event (
    id                   INTEGER PRIMARY KEY,
    kind                 TEXT    NOT NULL CHECK (kind IN ('uplink-down', 'uplink-hang', 'core-stuck', 'mac-limit',
                                                          'counters-near-wrap')),
    target               TEXT    NOT NULL,
    value                INTEGER,
    from_ms              INTEGER NOT NULL,
    until_ms             INTEGER,
    started              INTEGER NOT NULL DEFAULT 0,             -- belongs to the stand-ins
    CHECK (until_ms IS NULL OR until_ms > from_ms)
) STRICT;

-- Every hit of a fault, and every start and end of an event.
CREATE TABLE log (
    id                   INTEGER PRIMARY KEY,
    at_ms                INTEGER NOT NULL,
    pid                  INTEGER NOT NULL,
    operation            TEXT    NOT NULL,                       -- or the event's kind
    arguments            TEXT    NOT NULL DEFAULT '',
    what                 TEXT    NOT NULL                        -- 'status 0x0BAD0007', 'delay 20 ms', ...
) STRICT;

-- The description that the host was made from, for a reset: belongs to the tool. yaml: '' means the shipped profile that
-- host.profile names; seed: another one than the description's.
CREATE TABLE origin (
    id                   INTEGER PRIMARY KEY CHECK (id = 1),
    yaml                 TEXT    NOT NULL DEFAULT '',
    seed                 INTEGER
) STRICT;
