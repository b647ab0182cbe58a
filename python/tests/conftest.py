"""What all tests share."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import pytest
from hypothesis import settings

# No test fails because the machine is busy.
settings.register_profile("clastool", deadline=None)
settings.load_profile("clastool")


@pytest.fixture(scope="session")
def patience() -> Iterator[None]:
    """On a busy machine a killed worker takes longer to end than the five seconds after which Dask raises an error."""
    # Some tests run where Dask is not installed.
    from distributed import Nanny

    with pytest.MonkeyPatch.context() as patch:
        patch.setattr(Nanny.close, "__defaults__", (60.0, "nanny-close"))
        yield


@pytest.fixture(scope="session")
def cluster(patience: None) -> Iterator[Any]:
    """Two Dask workers for all tests that kill none."""
    from distributed import LocalCluster

    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as started:
        yield started


@pytest.fixture
def client(cluster: Any) -> Iterator[Any]:
    from distributed import Client

    with Client(cluster) as connected:
        yield connected


@pytest.fixture
def cluster_to_kill(patience: None) -> Iterator[Any]:
    """Two Dask workers of one test alone: none of them is one that a test before has killed and that is being started again."""
    import dask
    from distributed import LocalCluster

    # A cluster gives a worker up that takes longer than that to start again. A worker soon gives up calling one that is dead.
    patient, brief = {"distributed.deploy.lost-worker-timeout": "1h"}, {"distributed.comm.timeouts.connect": "10s"}
    with (
        dask.config.set(patient),
        LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None, config=brief) as started,
    ):
        yield started


@pytest.fixture
def client_to_kill(cluster_to_kill: Any) -> Iterator[Any]:
    from distributed import Client

    with Client(cluster_to_kill) as connected:
        yield connected
