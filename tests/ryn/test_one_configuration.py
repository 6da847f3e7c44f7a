"""The configuration of the switches is one for the process: while one thread reads it anew, others find what they look
for. Run under AddressSanitizer too, with the simulated host's libraries as they are built there."""

import simulated_host

ROUNDS = 100

THREE_THREADS = f"""
    import threading
    import _libryn
    import ryn

    host = ryn.Host()
    seen = []
    together = threading.Barrier(3)

    def often(work, expected):
        together.wait()
        results = [work() for _ in range({ROUNDS})]
        seen.append(results == [expected] * {ROUNDS} or set(map(repr, results)))

    threads = [
        threading.Thread(target=often, args=(lambda: ryn.Host().backend, "simulated")),
        threading.Thread(target=often, args=(lambda: host.switch("dvs-2").name, "dvs-2-set")),
        threading.Thread(target=often, args=(lambda: _libryn.GetLBAlgorithm("dvs-1"), "cpu")),
    ]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    print(seen)
    """


def test_three_threads_read_walk_and_look_up_the_configuration(tmp_path):
    assert simulated_host.SimulatedHost(tmp_path).python(THREE_THREADS) == "[True, True, True]\n"
