// A row of a test's table, taken apart by a structured binding. Unlike std::tuple it's an aggregate and compiles fast.
#pragma once

template <class... Columns>
struct Row;
template <class A, class B>
struct Row<A, B> {
    A a{};
    B b{};
};
template <class A, class B, class C>
struct Row<A, B, C> {
    A a{};
    B b{};
    C c{};
};
template <class A, class B, class C, class D>
struct Row<A, B, C, D> {
    A a{};
    B b{};
    C c{};
    D d{};
};
template <class A, class B, class C, class D, class E>
struct Row<A, B, C, D, E> {
    A a{};
    B b{};
    C c{};
    D d{};
    E e{};
};
template <class A, class B, class C, class D, class E, class F>
struct Row<A, B, C, D, E, F> {
    A a{};
    B b{};
    C c{};
    D d{};
    E e{};
    F f{};
};
