"""What a helper asserts is explained when it fails, as in a test."""

import pytest

pytest.register_assert_rewrite("desktop", "e2e_harness", "kit_harness", "packaging_harness",
                               "standin_harness")
