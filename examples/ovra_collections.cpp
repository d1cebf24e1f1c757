// ovra_collections - the pointer array, the pointer list, a map from strings
// to pointers and the byte FIFO. The collections hold pointers without
// owning what they point to. Exit status 1 if a result is not as expected.
#include <stdio.h>
#include <string.h>

#include "Ovra.h"
#include "OvraCollect.h"

namespace {

int g_failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    printf("unexpected: %s\n", what);
    ++g_failures;
  }
}

struct Planet {
  const char* name;
  int moons;
};

Planet g_planets[] = {{"Mercury", 0}, {"Venus", 0}, {"Earth", 1}, {"Mars", 2}, {"Jupiter", 95}};
constexpr int kPlanets = sizeof g_planets / sizeof g_planets[0];

}  // namespace

int main() {
  if (!OvraInitialize(nullptr)) return 1;
  {
    // TPtrArray: a growable array of pointers. Add returns -1 when memory runs out.
    TPtrArray array;
    for (Planet& planet : g_planets) Check(array.Add(&planet) >= 0, "array Add");
    array.RemoveAt(1);                  // Venus goes
    array.InsertAt(0, &g_planets[1]);   // and comes back in front
    printf("array of %d:", array.GetSize());
    for (int i = 0; i < array.GetSize(); ++i)
      printf(" %s", static_cast<Planet*>(array[i])->name);
    printf("\n");
    Check(array.GetSize() == kPlanets && array[0] == &g_planets[1], "array order");

    // TPtrList: a doubly linked list iterated with POSITION handles.
    TPtrList list;
    for (Planet& planet : g_planets) {
      if (planet.moons > 0) Check(list.AddTail(&planet) != nullptr, "list AddTail");
    }
    printf("list of planets with moons, backwards:");
    for (POSITION pos = list.GetTailPosition(); pos;)
      printf(" %s", static_cast<Planet*>(list.GetPrev(pos))->name);
    printf("\n");
    Check(list.GetCount() == 3 && list.GetHead() == &g_planets[2], "list contents");

    // TPtrFromBstrMap: 16-bit string keys (the map keeps its own copies).
    TPtrFromBstrMap byName;
    for (Planet& planet : g_planets)
      Check(byName.SetAt(TBstr(planet.name).GetString(), &planet), "map SetAt");
    void* found = nullptr;
    const bool hasMars = byName.Lookup(TBstr("Mars").GetString(), found);
    printf("map of %d: Mars has %d moons, Pluto is %s\n", byName.GetCount(),
           hasMars ? static_cast<Planet*>(found)->moons : -1,
           byName.Lookup(TBstr("Pluto").GetString(), found) ? "present" : "absent");
    Check(hasMars && found == &g_planets[3], "map lookup");
    int visited = 0;
    for (POSITION pos = byName.GetStartPosition(); pos;) {
      TBstr key;
      void* value = nullptr;
      byName.GetNextAssoc(pos, key, value);
      Check(strcmp(key.GetMultibyteString(), static_cast<Planet*>(value)->name) == 0, "map key");
      ++visited;
    }
    Check(visited == kPlanets, "map iteration");

    // TFifoBuffer: bytes out in the order they went in.
    TFifoBuffer fifo;
    const unsigned char first[] = "first ";
    const unsigned char second[] = "second";
    fifo.Write(first, 6);
    fifo.Write(second, 6);
    unsigned char out[16] = {};
    const int taken = fifo.Read(out, 9);
    printf("fifo: read %d bytes \"%s\", %d left\n", taken, reinterpret_cast<char*>(out),
           fifo.GetLength());
    Check(taken == 9 && memcmp(out, "first sec", 9) == 0 && fifo.GetLength() == 3, "fifo");
  }
  OvraUninitialize();
  printf("%s\n", g_failures ? "FAILED" : "all collection steps as expected");
  return g_failures ? 1 : 0;
}
