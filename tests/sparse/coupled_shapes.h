// Patterns of symmetric matrices that the tests of selected inverses share.
#ifndef ZEPH_TESTS_SPARSE_COUPLED_SHAPES_H
#define ZEPH_TESTS_SPARSE_COUPLED_SHAPES_H

#include <cstddef>
#include <random>

struct CoupledShape {
  const char* name;
  bool (*coupled)(std::size_t i, std::size_t j, std::mt19937& random);  // for rows i > columns j
};

inline const CoupledShape kCoupledShapes[] = {
    {"diagonal", [](auto, auto, auto&) { return false; }},
    {"tridiagonal", [](auto i, auto j, auto&) { return i == j + 1; }},
    {"arrow down", [](auto i, auto, auto&) { return i % 40 == 39; }},
    {"arrow up", [](auto, auto j, auto&) { return j == 0; }},
    {"chain and last", [](auto i, auto j, auto&) { return i == j + 1 || i % 97 == 96; }},
    {"blocks", [](auto i, auto j, auto&) { return i / 6 == j / 6 || i == j + 30; }},
    {"disconnected", [](auto i, auto j, auto&) { return i % 3 == j % 3 && i < j + 8; }},
    {"grid", [](auto i, auto j, auto&) { return i == j + 9 || (i == j + 1 && i % 9); }},
    {"band", [](auto i, auto j, auto&) { return i <= j + 21; }},
    {"wide blocks and border",
     [](auto i, auto j, auto&) { return i / 120 == j / 120 || i >= 240; }},
    {"dense tail",
     [](auto i, auto j, auto& random) { return j >= 60 || (i > 80 && random() % 3 == 0); }},
    {"full", [](auto, auto, auto&) { return true; }},
    {"sparse random", [](auto, auto, auto& random) { return random() % 100 == 0; }},
    {"random", [](auto, auto, auto& random) { return random() % 12 == 0; }},
    {"dense random", [](auto, auto, auto& random) { return random() % 3 == 0; }},
};

#endif
