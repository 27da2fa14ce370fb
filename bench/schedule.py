"""When the hosts of a scenario start their updates. The same hosts and times in every run."""

import math
import random

SEED = 1


def even(chance, seconds):
    return chance.uniform(0, seconds)


def peak(chance, seconds):
    """Most in the middle; two thirds within a third of the time."""
    return min(max(chance.gauss(seconds / 2, seconds / 6), 0), seconds)


def at_once(chance, seconds):
    """As soon as clocks and start-up allow: all in the first part of a second."""
    return chance.uniform(0, seconds) / 10


SHAPES = {"even": even, "peak": peak, "at-once": at_once}


def changed_hosts(hosts, share, chance):
    """Those whose record has changed. The others compare it with their cache and send nothing at all."""
    count = math.ceil(hosts * share)
    return chance.sample(range(hosts), count)


def make_schedule(scenario, hosts):
    """(milliseconds, host) for each changed host, in the order of time."""
    chance = random.Random(SEED)
    shape = SHAPES[scenario["shape"]]
    times = [
        (shape(chance, scenario["seconds"]) * 1e3, host)
        for host in changed_hosts(hosts, scenario["changed"], chance)
    ]
    return sorted(times)
