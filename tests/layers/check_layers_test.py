#!/usr/bin/env python3
"""Tests of the rules in check_layers.py, each with an include that breaks one and one that doesn't."""

import unittest

from check_layers import place_problem, problem

INSTALLED = {
    "talvcs/export.h",
    "talvcs/talvcs.h",
    "talvcs/version.h",
    "talvcs/foundation/string.h",
    "talvcs/objects/id.h",
    "talvcs/objects/tree.h",
    "talvcs/storage/objects_storage.h",
    "talvcs/merge/resolvers.h",
    "talvcs/repository/irepository.h",
    "talvcs/repository/repository.h",
    "talvcs/persistence/serializer.h",
    "kit/text.h",
}


class Layers(unittest.TestCase):
    def allowed(self, path, included):
        self.assertIsNone(problem(path, included, INSTALLED), f"{path} includes {included}")

    def refused(self, path, included):
        self.assertIsNotNone(problem(path, included, INSTALLED), f"{path} includes {included}")

    def test_includes_point_downwards(self):
        self.allowed("talvcs/objects/tree.cpp", "talvcs/foundation/string.h")
        self.allowed("talvcs/persistence/serializer.cpp", "talvcs/repository/repository.h")
        self.allowed("talvcs/repository/repository.cpp", "talvcs/merge/resolvers.h")
        self.refused("talvcs/foundation/string.cpp", "talvcs/objects/id.h")
        self.refused("talvcs/objects/tree.cpp", "talvcs/storage/objects_storage.h")
        self.refused("talvcs/merge/resolvers.cpp", "talvcs/storage/objects_storage.h")
        self.refused("talvcs/storage/purge.cpp", "talvcs/merge/resolvers.h")
        self.refused("talvcs/repository/repository.cpp", "talvcs/persistence/serializer.h")

    def test_abstract_interface_is_an_exception(self):
        self.allowed("talvcs/objects/tree.cpp", "talvcs/repository/irepository.h")
        self.allowed("talvcs/merge/resolvers.cpp", "talvcs/repository/irepository.h")
        self.allowed("talvcs/repository/irepository.h", "talvcs/objects/id.h")
        self.refused("talvcs/storage/purge.cpp", "talvcs/repository/irepository.h")
        self.refused("talvcs/foundation/string.cpp", "talvcs/repository/irepository.h")
        self.refused("talvcs/repository/irepository.h", "talvcs/objects/tree.h")

    def test_directories_see_listed_headers_of_objects(self):
        self.allowed("talvcs/directory/internal/entry_chunk.h", "talvcs/objects/object.h")
        self.refused("talvcs/directory/internal/entry_chunk.h", "talvcs/objects/commit.h")
        self.refused("talvcs/format/internal/tree_format.h", "talvcs/objects/object.h")
        self.refused("talvcs/format/internal/tree_format.h", "talvcs/directory/internal/entry_chunk.h")

    def test_library_knows_nothing_around_it(self):
        self.allowed("talvcs/foundation/string.h", "talvcs/export.h")
        self.refused("talvcs/objects/tree.cpp", "kit/text.h")
        self.refused("talvcs/objects/tree.cpp", "tests/support/fakes.h")
        self.refused("talvcs/objects/tree.cpp", "talvcs/talvcs.h")

    def test_installed_headers_and_hosts_see_installed_headers_only(self):
        self.allowed("talvcs/foundation/internal/utf.cpp", "talvcs/foundation/internal/utf.h")
        self.refused("talvcs/foundation/string.h", "talvcs/foundation/internal/utf.h")
        self.allowed("kit/text.cpp", "talvcs/talvcs.h")
        self.allowed("kit/store.cpp", "kit/private.h")
        self.refused("kit/text.cpp", "talvcs/foundation/internal/utf.h")
        self.refused("kit/text.h", "kit/private.h")
        self.refused("kit/text.cpp", "tests/support/fakes.h")
        self.refused("examples/quick_start.cpp", "talvcs/foundation/internal/utf.h")

    def test_headers_stand_where_their_readers_look(self):
        self.assertIsNone(place_problem("talvcs/objects/tree.h", INSTALLED))
        self.assertIsNone(place_problem("talvcs/foundation/internal/utf.h", INSTALLED))
        self.assertIsNone(place_problem("talvcs/objects/tree.cpp", INSTALLED))
        self.assertIsNotNone(place_problem("talvcs/objects/tree_entries.h", INSTALLED))
        self.assertIsNotNone(
            place_problem("talvcs/objects/internal/tree.h", {"talvcs/objects/internal/tree.h"}))


if __name__ == "__main__":
    unittest.main()
