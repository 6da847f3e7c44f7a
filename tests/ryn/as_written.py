"""The package's calls as its guide shows them, each at least once, on a simulated host."""

import itertools

import numpy

import ryn

MAC = "02:00:00:aa:bb:cc"

host = ryn.Host()
assert host.backend == "simulated"
assert host.cores == (0, 1, 2, 3, 8, 9, 10, 11)

lines = []
for switch in host.switches():
    print(switch.number, switch.name, switch.alias, switch.id, switch.mtu, switch.max_ports, switch.cores)
    for port in switch.ports():
        assert port.number < 128 and port.dvport >= 0 and port.mac_count >= 0 and port.switch is switch
        assert len(port.tx_cores) <= 32 and len(port.rx_cores) <= 32
        c = port.counters()
        assert c.total.tx_packets == c.fast.tx_packets + c.slow.tx_packets
        assert c.total.tx_bytes >= 0 and c.total.rx_drops >= 0
        print(port, port.kind, port.mac, c.total.tx_packets)
        lines.append(f"{port} {port.kind} {port.mac}")
assert lines[3] == "dvs-1/3 VNIC 02:00:00:07:00:03", lines[3]

reading = host.counters()
assert len(reading) == len(lines) and reading.time > 1e9

switch = host.switch("dvs-1")
port = host.port("dvs-1/3")
assert reading[port] == port.counters()  # the clock stands

switch.burst_size = 64
port.lro = True
switch.numa_teaming = True
switch.fpo = False
assert (switch.burst_size, port.lro, switch.numa_teaming, switch.fpo) == (64, True, True, 0)
for name, setting in switch.settings().items():
    assert setting.name == name and setting.source in ("property", "datapath", "default")
    print(name, setting.value, setting.source, setting.stored, setting.running)
assert switch.settings()["burst_size"] == ("burst_size", 64, "property", 64, 64)

print(switch.balancer.algorithm, switch.balancer.options)
assert switch.balancer.snapshot().groups and str(switch.balancer.snapshot()).startswith("\nGroups\n")
assert len(switch.balancer.port_stats().ports) == 128
print(host.balancer_weights, host.flow_timeout, host.devices())

uplink = switch.uplinks()[0]
assert uplink.ring_size == (2048, 1024) and uplink.offload.level == "Model 2"
assert uplink.counters().rx_packets > 0 and len(uplink.queues(0)) == len(uplink.port.rx_cores)
assert "link_up" in uplink.driver_text and uplink.driver_stats["link_up"] == 1 and uplink.link_up is True

table = switch.macs()
assert len(table) > 20 and table[0].mac in [row.mac for row in table]
assert table.find(table[0].mac)[0].port == table[0].port
assert len(numpy.asarray(table)) == len(table)
assert set(numpy.asarray(table).dtype.names or ()) >= {"mac", "vlan", "port", "generation"}

dropped = 0
for flow in host.flows(dst="10.0.0.5", action="DROP"):
    print(flow.src, flow.dst, flow.sport, flow.dport, flow.protocol, flow.vlan, flow.core, flow.packets, flow.actions)
    assert str(flow.dst) == "10.0.0.5" and ryn.Actions.DROP in flow.actions
    dropped += 1
assert dropped

assert port.teaming.type and port.config().dvport == port.dvport and port.netq().port == port.number
assert [mirror.index for mirror in switch.mirrors()] == [1, 2, 7]
port.add_mac(MAC, vlan=100)
assert [row.vlan for row in port.macs() if str(row.mac) == MAC] == [100]
port.migrate(2, 2, 0)
assert set(port.refresh().tx_cores) == {2}
switch.clear_flows()
assert len(host.find_mac("02:00:00:*")) > 20
((found, row),) = host.find_mac(MAC)
assert (found, row.port) == (switch, port.number)

print(len(port.macs()))
port.clear_macs()
port.del_mac(MAC, vlan=100)
port.unpin(0)
port.reset()
port.teaming = ("LAG", [0, 1])
uplink.ring_size = (2048, 1024)

print(sum(1 for _ in switch.flows()))
print(len(switch.flow_stats(cores=None)), len(switch.fpo_stats(cores=None)))
switch.clear_macs()
switch.set_flow_cache(True)
switch.set_uplink_learning(False)
print(switch.lro, switch.panic_on_tx_hang)
switch.lro = True
switch.panic_on_tx_hang = True
switch.balancer.algorithm = "count"
switch.balancer.options = (60, 40, 10, 5)
assert switch.balancer.algorithm == "count" and switch.balancer.options.high == 60
host.balancer_weights = range(8)
assert tuple(host.balancer_weights) == tuple(range(8))
host.reset_balancer_weights()
host.flow_timeout = 11
host.set_affinity("lunic0", 1)
assert host.init_fastslabs() is True

for tick in itertools.islice(host.watch(interval=0.05), 2):
    for port, rate in tick.top("tx_bytes", 10):
        print(port, rate.tx_bytes)
    assert len(tick.top("tx_bytes", 10)) == 10

assert (ryn.raw.ListSwitches() or [])[0]["name"] == switch.name
print("as written")
