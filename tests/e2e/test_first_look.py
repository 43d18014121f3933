"""The shortest way through everything: launch, look, change, look again."""

from conftest import SERVICE_ID, minutes_ago
from desktop import product


def test_the_menu_follows_the_service(application, service):
    application.start()
    application.wait_for_titles(product.menu("authorized", "5 min ago", SERVICE_ID))

    service.status.update(state="revoked", last_heartbeat=minutes_ago(180))
    application.wait_for_titles(product.menu("revoked", "3 h ago", SERVICE_ID), timeout=25)
    assert len(service.requests) == 2
