@0xd6c0f3b29a1e4587;

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("kpl::bench::schema");

interface Calculator {
  add @0 (a :Int32, b :Int32) -> (sum :Int32);
}
