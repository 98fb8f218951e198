// Gridkit: mesh utilities for finite-element and surface meshes.
//
// A mesh is a coordinates matrix dense2D<double> (one column per node, 2 or 3 rows) and one or
// more connectivities dense2D<unsigned> (one column per element, one row per local node).
// Operations return int status codes: 0 (or a count) on success, -k when the k-th argument is
// at fault, ERR_ALLOCATION when memory could not be obtained. Nothing throws, prints or keeps
// state between calls.
#ifndef KVO_GRIDKIT_HPP
#define KVO_GRIDKIT_HPP

#include <cstdio>

#include <kvo/containers.hpp>
#include <kvo/histogram.hpp>

#if defined(_WIN32)
#define GRIDKIT_API __declspec(dllimport)
#elif defined(__GNUC__)
#define GRIDKIT_API __attribute__((visibility("default")))
#else
#define GRIDKIT_API
#endif

namespace kvo {
namespace gridkit {

using misc::histogram;

// ============================================================================================
// Foundation: element types, constants, version, index utilities
// ============================================================================================

enum element_type {
  ET_NONE = 0,
  ET_NODE1 = 1,
  ET_EDGE_ANY = 2,
  ET_EDGE2 = 3,
  ET_EDGE3 = 4,
  ET_FACE_MIXED = 5,  // triangles (4th node NULL_INDEX or 3 rows) and quadrangles
  ET_TRIA3 = 6,
  ET_QUAD4 = 7,
  ET_TRIA6 = 8,
  ET_QUAD8 = 9,
  ET_QUAD9 = 10,
  ET_SOLID_MIXED = 11,  // tetrahedra, pyramids, wedges, hexahedra; trailing NULL_INDEX entries
  ET_TETRA4 = 12,
  ET_TETRA10 = 13,
  ET_PYRAMID5 = 14,
  ET_PYRAMID14 = 15,
  ET_WEDGE6 = 16,
  ET_WEDGE18 = 17,
  ET_HEXA8 = 18,
  ET_HEXA20 = 19,
  ET_HEXA27 = 20
};

// No node, no element, not assigned.
constexpr unsigned NULL_INDEX = 0xFFFFFFFFu;
// A container could not obtain memory.
constexpr int ERR_ALLOCATION = -199;

namespace detail {
inline constexpr unsigned nodes_table[21] = {0, 1, 0, 2, 3, 0, 3, 4, 6, 8, 9, 0, 4, 10, 5, 14, 6, 18, 8, 20, 27};
inline constexpr unsigned vertices_table[21] = {0, 1, 2, 2, 2, 0, 3, 4, 3, 4, 4, 0, 4, 4, 5, 5, 6, 6, 8, 8, 8};
}  // namespace detail

// Rows of a connectivity of this type (0 for the class values ET_NONE, ET_EDGE_ANY and the mixed
// types). Not bounds-checked: validate the type first.
constexpr unsigned nodes_per_element(element_type t) noexcept { return detail::nodes_table[t]; }
// Corner nodes of this type; they come first in a column.
constexpr unsigned vertices_per_element(element_type t) noexcept { return detail::vertices_table[t]; }

// The library's version, "4.4.1".
GRIDKIT_API const char* version();

// Largest entry other than NULL_INDEX; NULL_INDEX for an empty input, 0 when all are null.
GRIDKIT_API unsigned max_ID(const dense1D<unsigned, 16>& IDs);
GRIDKIT_API unsigned max_ID(const dense2D<unsigned>& connectM);
// Every entry is NULL_INDEX or below bound (true at once for bound NULL_INDEX or empty input).
GRIDKIT_API bool check_IDs(const dense1D<unsigned, 16>& IDs, unsigned bound);
GRIDKIT_API bool check_IDs(const dense2D<unsigned>& connectM, unsigned bound);
// Row count fits the type, nulls only where the mixed types allow them, nodes below bound.
GRIDKIT_API bool check_IDs(const dense2D<unsigned>& connectM, element_type FE_type, unsigned bound);
// Adds shift to every non-null entry (wrapping).
GRIDKIT_API int shift_indices(dense1D<unsigned, 16>& IDs, int shift);
// Adds shift to every entry; nulls are kept only for the mixed types, otherwise they wrap too.
GRIDKIT_API int shift_indices(dense2D<unsigned>& connectM, int shift, element_type FE_type);
// Replaces each entry e by new_IDs[e] when e < new_IDs.size.
GRIDKIT_API void change_indices(dense1D<unsigned, 16>& IDs, const dense1D<unsigned, 16>& new_IDs);
GRIDKIT_API void change_indices(dense2D<unsigned>& connectM, const dense1D<unsigned, 16>& new_IDs);
// Scatters V by perm: the old V[i] goes to position perm[i] (the later i wins); V is rebound to
// new storage. 0 or ERR_ALLOCATION.
GRIDKIT_API int permutation(dense1D<unsigned, 16>& V, const dense1D<unsigned, 16>& perm);
GRIDKIT_API int permutation(dense1D<double, 16>& V, const dense1D<unsigned, 16>& perm);
// Matches equal IDs: map2to1[j] = position in IDs1 (the last one), map1to2[i] = position in IDs2
// (the last one matching i), NULL_INDEX when none; NULL_INDEX IDs never match. Linear time: large
// lists are matched in cache-sized blocks with the same results. Outputs sharing storage with an
// input are cleared before the input is read. Returns 0.
GRIDKIT_API int get_IDs(const dense1D<unsigned, 16>& IDs1, const dense1D<unsigned, 16>& IDs2,
                        dense1D<unsigned, 16>& map2to1, dense1D<unsigned, 16>& map1to2);
// Matches columns with the same nodes (strict: same order; otherwise also rotated or reversed,
// both aligned at the first occurrence of their largest node); the first matching connect1
// column in ascending order wins, and map1to2 keeps the last matching connect2 column. -2 when
// the row counts differ (both maps left empty).
GRIDKIT_API int get_IDs(const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2,
                        dense1D<unsigned, 16>& map2to1, dense1D<unsigned, 16>& map1to2, bool strict);

// ============================================================================================
// Spatial search: node detector
// ============================================================================================

// A k-d tree over columns of a coordinate matrix (2 or 3 rows), which it refers to and does not
// copy: it keeps a view sharing the matrix's storage and reads the values at every query, so
// values changed in place are seen (through a tree shaped by the old ones). Nearest searches go
// nearer side first and settle ties, NaN values and nodes met outside the region their place
// in the tree stands for with the right-before-left reference order; a node moved out of its
// region inside a part of the tree the search never reaches stays unseen, where the reference
// order might have reached it. Nodes are inserted
// in a fixed pseudo-random order (MT19937 seeded with 1), so equal inputs give equal trees.
// Splitting axis = depth mod dimension, ties go right. Queries are const and may run
// concurrently; insert/reinit need exclusive use. Queries whose dimension differs from the
// tree's find nothing. A NaN distance counts as infinite.
class GRIDKIT_API node_detector {
 public:
  node_detector();
  explicit node_detector(const dense2D<double>& pos);
  node_detector(const dense2D<double>& pos, const dense1D<unsigned, 16>& indices);
  node_detector(const dense2D<double>& pos, const dense2D<unsigned>& connectM);
  node_detector(const dense2D<double>& pos, const dense2D<unsigned>* connectM1, const dense2D<unsigned>* connectM2);
  node_detector(const node_detector& other);
  node_detector& operator=(const node_detector& other);
  ~node_detector();

  // Drops the tree; the detector becomes empty.
  void clear();
  // New tree over all columns. -1 (detector left empty) unless pos has 2 or 3 rows.
  int reinit(const dense2D<double>& pos);
  // New tree over the listed nodes (duplicates kept). -1: pos has neither 2 nor 3 rows; -2: an
  // index is not below pos.cols. On failure the previous tree is kept.
  int reinit(const dense2D<double>& pos, const dense1D<unsigned, 16>& indices);
  // New tree over the distinct non-null nodes of the connectivities (first occurrence order,
  // column by column; null pointers allowed). Codes as for the list form.
  int reinit(const dense2D<double>& pos, const dense2D<unsigned>& connectM);
  int reinit(const dense2D<double>& pos, const dense2D<unsigned>* connectM1, const dense2D<unsigned>* connectM2);
  // Adds the listed nodes (or the distinct nodes of the elements); indices not below the column
  // count are skipped. Returns how many were added (0 for an empty detector).
  unsigned insert(const dense1D<unsigned, 16>& indices);
  unsigned insert(const dense2D<unsigned>& connectM);
  // Nearest node to P; of several at the same distance, the first met by the search.
  // NULL_INDEX for an empty detector.
  unsigned find_closest(const vector_fixed<double, 2>& P) const;
  unsigned find_closest(const vector_fixed<double, 3>& P) const;
  // Nearest node other than `node` (a coincident duplicate is found at distance 0); NULL_INDEX
  // when node is not a column of the coordinates or no other node is in the tree.
  unsigned find_closest(unsigned node) const;
  // Appends (keeping earlier entries) every node inside the closed box, in tree preorder; a
  // node inserted twice is reported twice. A box with min above max on an axis finds nothing.
  void find_in_box(const vector_fixed<double, 2>& box_min, const vector_fixed<double, 2>& box_max,
                   dense1D<unsigned, 16>& found) const;
  void find_in_box(const vector_fixed<double, 3>& box_min, const vector_fixed<double, 3>& box_max,
                   dense1D<unsigned, 16>& found) const;
  // Number of tree nodes (0 when empty).
  unsigned size() const;

 private:
  struct impl;
  impl* impl_;
};

// ============================================================================================
// Mesh editing: merging
// ============================================================================================

// Node merging. Node j of IDs1 pairs with node i = U2[k] (U2: the distinct nodes of IDs2 in the
// order of first occurrence) when j comes after position k in U2 or is not in it, lies in the
// closed box of half-width `tolerance` around i, and is at Euclidean distance <= tolerance; j is
// merged into the first such i, and chains are followed to their end. new_IDs: one entry per
// coordinate column (identity for nodes not merged). A NaN coordinate never merges; a NaN
// tolerance merges nothing; tolerance 0 merges coincident nodes. Nodes are never removed.
// Point lists: returns the number of merged nodes; -1 pos has neither 2 nor 3 rows, -2/-3 an
// index of IDs1/IDs2 not below pos.cols, -4 negative tolerance; an empty list returns 0 with
// new_IDs left empty.
GRIDKIT_API int merge(const dense2D<double>& pos, const dense1D<unsigned, 16>& IDs1, const dense1D<unsigned, 16>& IDs2,
                      dense1D<unsigned, 16>& new_IDs, double tolerance);
GRIDKIT_API int merge(const dense2D<double>& pos, const dense1D<unsigned, 16>& IDs, dense1D<unsigned, 16>& new_IDs,
                      double tolerance);
// All nodes against all (the survivor of a cluster is its smallest index); merged nodes then take
// the coordinates of their target (pos is rebound to a copy when another view shares its
// block). -1 bad row count, -3 negative tolerance.
GRIDKIT_API int merge(dense2D<double>& pos, dense1D<unsigned, 16>& new_IDs, double tolerance);
GRIDKIT_API int merge(dense2D<double>& pos, double tolerance);

// Connectivities [first, last): merges the nodes they use, with their order of first occurrence
// (column by column, connectivity by connectivity) as the list above, and fills new_IDs (one
// entry per coordinate column, identity for unused nodes). Indices not below pos.cols are left
// alone. mode 0: the connectivities are renumbered in place; mode 1: the same, but two nodes
// merge only when used by different connectivities of the range (a node used by several counts
// as used by each), which joins separate meshes along their interface and keeps seams inside one
// mesh open; mode 2: as mode 0 with the connectivities left untouched. Returns 0; -1 bad row
// count, -3 range given backwards, -5 negative tolerance, -6 mode above 2; ERR_ALLOCATION.
// The forms without tolerance use 1e-6 and mode 0.
GRIDKIT_API int merge(const dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last,
                      dense1D<unsigned, 16>& new_IDs, double tolerance, unsigned mode);
GRIDKIT_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM, dense1D<unsigned, 16>& new_IDs,
                      double tolerance, unsigned mode);
GRIDKIT_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2,
                      dense1D<unsigned, 16>& new_IDs, double tolerance, unsigned mode);
GRIDKIT_API int merge(const dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last, double tolerance,
                      unsigned mode);
GRIDKIT_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM, double tolerance, unsigned mode);
GRIDKIT_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2,
                      double tolerance, unsigned mode);
GRIDKIT_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM);
GRIDKIT_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2);

// ============================================================================================
// Mesh editing: index compaction and degenerate elements
// ============================================================================================

// Appends to `out` (not cleared; its own entries are not looked at) the distinct entries of a
// list, of a connectivity (column by column over its rows only, also for ld > rows) or of a
// range [first, last) of connectivities, in the order of their first occurrence, without
// NULL_INDEX and without the `excluded` values. 0; -3 for a range given backwards;
// ERR_ALLOCATION.
GRIDKIT_API int unique_indices(dense1D<unsigned, 16>& out, const dense1D<unsigned, 16>& IDs,
                               dense1D<unsigned, 16> excluded);
GRIDKIT_API int unique_indices(dense1D<unsigned, 16>& out, const dense2D<unsigned>& connectM,
                               dense1D<unsigned, 16> excluded);
GRIDKIT_API int unique_indices(dense1D<unsigned, 16>& out, const dense2D<unsigned>* first,
                               const dense2D<unsigned>* last, dense1D<unsigned, 16> excluded);
// Number of distinct non-null entries; -2 for a range given backwards.
GRIDKIT_API int count_unique_indices(const dense2D<unsigned>& connectM);
GRIDKIT_API int count_unique_indices(const dense2D<unsigned>* first, const dense2D<unsigned>* last);
// Removes the columns that repeat a node (a repeated NULL_INDEX counts only when strict) and
// packs the others to the front in order; returns how many were removed. new_IDs gets one entry
// per old column: its new position, or NULL_INDEX when removed. ERR_ALLOCATION.
GRIDKIT_API int remove_degenerated(dense2D<unsigned>& connectM, bool strict);
GRIDKIT_API int remove_degenerated(dense2D<unsigned>& connectM, dense1D<unsigned, 16>& new_IDs, bool strict);
// Removes the nodes of index N0 or above that no connectivity uses (nodes below N0 always stay),
// moving the others down in order, and renumbers the connectivities; returns how many nodes were
// removed. new_IDs: old to new node (NULL_INDEX when removed); left empty when N0 >= pos.cols.
// -3 range given backwards; -2 an index not below pos.cols; ERR_ALLOCATION. A connectivity
// passed twice (the same view) is renumbered once.
GRIDKIT_API int simplify(dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last,
                         dense1D<unsigned, 16>& new_IDs, unsigned N0);
GRIDKIT_API int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM, dense1D<unsigned, 16>& new_IDs,
                         unsigned N0);
GRIDKIT_API int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM, unsigned N0);
GRIDKIT_API int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2, unsigned N0);

// ============================================================================================
// Mesh editing: geometric transforms
// ============================================================================================

// Transforms change the first 2 (2-D forms) or 3 (3-D forms) rows of the nodes in place. They
// return 0 at once for empty coordinates, identity parameters (all-zero displacement or
// rotation vector, angle 0.0, factor 1.0; NaN is applied) or an empty list. Coordinates with
// fewer rows are then promoted, the new rows set to 0.0 (if that allocation fails nothing
// changes and 0 is returned). All-node forms return the node count; list forms of translate
// and rotate the number of entries applied (duplicates again, indices not below pos.cols
// skipped); zoom's list form returns 0 (invalid indices are skipped there too). Connectivity
// forms move each distinct node once, through unique_indices, and return the list form's value.
// translate: p <- p + d.
GRIDKIT_API int translate(dense2D<double>& pos, const vector_fixed<double, 2>& displacement);
GRIDKIT_API int translate(dense2D<double>& pos, const vector_fixed<double, 2>& displacement,
                          const dense1D<unsigned, 16>& indices);
GRIDKIT_API int translate(dense2D<double>& pos, const vector_fixed<double, 2>& displacement,
                          const dense2D<unsigned>& connectM);
GRIDKIT_API int translate(dense2D<double>& pos, const vector_fixed<double, 3>& displacement);
GRIDKIT_API int translate(dense2D<double>& pos, const vector_fixed<double, 3>& displacement,
                          const dense1D<unsigned, 16>& indices);
GRIDKIT_API int translate(dense2D<double>& pos, const vector_fixed<double, 3>& displacement,
                          const dense2D<unsigned>& connectM);

// rotate: p <- c + R (p - c), the product accumulated row by row into 0.0 and c added last.
// 2-D: counter-clockwise by angle (radians). 3-D: right-handed about the rotation vector v by
// t = |v|; R = I + a K + b K^2 (K the cross-product matrix of v, K^2 = K*K) with a = sin t / t,
// b = (1 - cos t) / t^2, t^2 being v0^2 + v1^2 + v2^2; for t <= 0.1 a and b come from their
// series in t^2.
GRIDKIT_API int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle);
GRIDKIT_API int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle,
                       const dense1D<unsigned, 16>& indices);
GRIDKIT_API int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle,
                       const dense2D<unsigned>& connectM);
GRIDKIT_API int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre,
                       const vector_fixed<double, 3>& rotation);
GRIDKIT_API int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre,
                       const vector_fixed<double, 3>& rotation, const dense1D<unsigned, 16>& indices);
GRIDKIT_API int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre,
                       const vector_fixed<double, 3>& rotation, const dense2D<unsigned>& connectM);

// zoom: scaling about c, computed as p <- (p - c)(f - 1) + p.
GRIDKIT_API int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor);
GRIDKIT_API int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor,
                     const dense1D<unsigned, 16>& indices);
GRIDKIT_API int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor,
                     const dense2D<unsigned>& connectM);
GRIDKIT_API int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor);
GRIDKIT_API int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor,
                     const dense1D<unsigned, 16>& indices);
GRIDKIT_API int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor,
                     const dense2D<unsigned>& connectM);

// Widens [box_min, box_max] (never reset; NaN coordinates ignored). -1 when pos does not have
// exactly 2 (2-D forms) or 3 rows; list forms: an empty list returns 0 first, -2 when an entry
// fails check_IDs against pos.cols (NULL_INDEX entries pass and are skipped). Otherwise 0.
GRIDKIT_API int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 2>& box_min,
                                 vector_fixed<double, 2>& box_max);
GRIDKIT_API int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned, 16>& indices,
                                 vector_fixed<double, 2>& box_min, vector_fixed<double, 2>& box_max);
GRIDKIT_API int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                 vector_fixed<double, 2>& box_min, vector_fixed<double, 2>& box_max);
GRIDKIT_API int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 3>& box_min,
                                 vector_fixed<double, 3>& box_max);
GRIDKIT_API int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned, 16>& indices,
                                 vector_fixed<double, 3>& box_min, vector_fixed<double, 3>& box_max);
GRIDKIT_API int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                 vector_fixed<double, 3>& box_min, vector_fixed<double, 3>& box_max);

// ============================================================================================
// Mesh editing: copies, edges, clipping
// ============================================================================================

// Plain copy: the distinct nodes of source (order of unique_indices) are appended to pos and out
// becomes source renumbered to the copies (replaced; NULL_INDEX kept). 0; -3 when source names a
// node not below pos.cols (nothing changes); ERR_ALLOCATION.
GRIDKIT_API int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const dense2D<unsigned>& source);
// Series: `count` copies, copy i turned by (i+1) rotation steps about centre, then shifted by (i+1)
// steps, appended to out (never cleared; a taller out pads the new columns with NULL_INDEX, a
// shorter one is widened the same way). 0 for empty pos or count 0; -7 for a bad source.
GRIDKIT_API int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, 2>& step,
                          const vector_fixed<double, 2>& centre, double angle, unsigned count,
                          const dense2D<unsigned>& source);
GRIDKIT_API int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, 3>& step,
                          const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation,
                          unsigned count, const dense2D<unsigned>& source);
// Mirror copy through the line/plane through point with the given normal (orientation reversed).
// 0 for empty pos; -4 for a zero normal; -5 for a bad source; coordinates promoted to 2 or 3 rows.
GRIDKIT_API int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, 2>& point,
                              const vector_fixed<double, 2>& normal, const dense2D<unsigned>& source);
GRIDKIT_API int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& out, const vector_fixed<double, 3>& point,
                              const vector_fixed<double, 3>& normal, const dense2D<unsigned>& source);
// Appends the distinct corner edges (lo, hi), sorted, as 2-row columns of edges (an empty edges is
// restarted as 2 x 0). Empty connectivity: 0, edges untouched. -1 when the connectivity fails
// check_IDs for the type (no bound) or has fewer rows than the corners; -3 for a non-empty edges
// without 2 rows. Types without edges (ET_NONE, ET_NODE1, ET_EDGE_ANY, ET_HEXA20) append nothing;
// edges touching a NULL_INDEX entry of a fixed type are skipped.
GRIDKIT_API int copy_edges(const dense2D<unsigned>& connectM, element_type FE_type, dense2D<unsigned>& edges);
// The same over the range [first, last) with FE_types[i] for connectivity i, all edges sorted and
// deduplicated together. 0 for an empty range; -2 when last < first; -3 when FE_types has fewer
// entries than the range; -1 for a bad non-empty connectivity; -4 for edges of the wrong height.
// Values outside the enumeration have no edges.
GRIDKIT_API int copy_edges(const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                           const dense1D<int, 16>& FE_types, dense2D<unsigned>& edges);
// Appends to out the columns of connectM whose nodes, up to the first NULL_INDEX, all lie strictly
// on the side of the plane the normal points to (first min(pos.rows, 3) rows used). Checks: empty
// connectM 0; check_IDs against pos.cols -2; |normal| < 1e-12 -4; non-empty out of another height
// -5. out gets max(out.rows, connectM.rows) rows (extra rows NULL_INDEX). Returns 0, not a count.
GRIDKIT_API int clip(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                     const vector_fixed<double, 3>& origin, const vector_fixed<double, 3>& normal,
                     dense2D<unsigned>& out);

// ============================================================================================
// Topology: neighbours and boundaries
// ============================================================================================

// Supported types: ET_EDGE2, ET_TRIA3, ET_QUAD4, ET_FACE_MIXED (3 rows: read as ET_TRIA3; 4 rows:
// a null 4th node makes a triangle), ET_TETRA4, ET_PYRAMID5, ET_WEDGE6, ET_HEXA8, ET_SOLID_MIXED
// (8 rows). Local faces, in node order (a triangular face of a 4-row family carries NULL_INDEX
// in its 4th row):
//   edge (1) (0); triangle (1,2) (2,0) (0,1); quadrangle (0,1) (1,2) (2,3) (3,0);
//   tetrahedron (1,2,3) (2,0,3) (1,3,0) (2,1,0); pyramid (0,4,1) (1,4,2) (2,4,3) (3,4,0) (0,1,2,3);
//   wedge (0,1,2) (3,5,4) (2,1,4,5) (5,3,0,2) (0,3,4,1);
//   hexahedron (0,3,7,4) (1,5,6,2) (0,4,5,1) (3,2,6,7) (0,1,2,3) (4,7,6,5).
// Faces per element nf: 2, 3, 4, 4 (mixed faces), 4, 5, 5, 6, 6 (mixed solids); face j of
// element e has the identifier nf*e + j. Faces are equal when they hold the same node, the same
// pair, or the same cycle of 3 or 4 nodes in either direction; a triangle never equals a
// four-node face.
// Checks, in order: empty connectivity -> 0; check_IDs(connectM, type, NULL_INDEX) fails -> -1;
// unsupported type -> -2; row count not the type's -> -1.

// Neighbour matrix (nf x elements, replaced): the element across each face, NULL_INDEX for an
// open face or an unused face row. Three or more equal faces get NULL_INDEX, or, with
// keep_non_manifold, the first face (lowest identifier) points at the element of the last one
// and every other face at the element of the first. The output is cleared on entry and gets
// storage of its own. 0, -1, -2 or ERR_ALLOCATION (output then cleared).
GRIDKIT_API int get_neighbors(const dense2D<unsigned>& connectM, element_type FE_type, bool keep_non_manifold,
                              dense2D<unsigned>& neighbors);
// Appends one column per used face of every element (element, then local face order); face rows:
// 1 (edges), 2 (surface types), 3 (tetrahedra), 4 (other solids). -2 when a non-empty output
// has another row count.
GRIDKIT_API int get_element_boundaries(const dense2D<unsigned>& connectM, element_type FE_type,
                                       dense2D<unsigned>& boundaries);
// Appends the faces whose neighbour entry is NULL_INDEX, as get_element_boundaries writes them.
// -2 when the neighbour matrix is not nf x elements, -3 when a non-empty output has another row
// count.
GRIDKIT_API int get_mesh_boundaries(const dense2D<unsigned>& connectM, const dense2D<unsigned>& neighbors,
                                    element_type FE_type, dense2D<unsigned>& boundaries);
// Appends the identifiers nf*e + j of the faces whose neighbour entry is NULL_INDEX. -2 when the
// neighbour matrix is not nf x elements.
GRIDKIT_API int get_mesh_bounding_elements(const dense2D<unsigned>& connectM, const dense2D<unsigned>& neighbors,
                                           element_type FE_type, dense1D<unsigned, 16>& faces);

// ============================================================================================
// Topology: subdomains, graphs and face sorting
// ============================================================================================

// NULL_INDEX entries are skipped wherever nodes are read. Compressed-row results: offsets of
// N + 1 entries (N = largest node + 1, 1 when all entries are null), row n from offsets[n] to
// offsets[n+1] of the values. 0 or ERR_ALLOCATION (also when N + 1 does not fit 32 bits).

// ancestors[n] = last element using node n. An empty output is first sized to max_ID + 1 entries
// of NULL_INDEX; a non-empty one is kept and its size bounds the nodes written. An empty
// connectivity leaves it untouched.
GRIDKIT_API int get_ancestors(const dense2D<unsigned>& connectM, dense1D<unsigned, 16>& ancestors);
// Elements of each node, ascending, once per occurrence. Empty connectivity: offsets {0}.
GRIDKIT_API int get_connected_elements(const dense2D<unsigned>& connectM, dense1D<unsigned, 16>& offsets,
                                       dense1D<unsigned, 16>& elements);
// Distinct other nodes sharing an element with each node, by first appearance (ascending
// element, then local order). Empty connectivity: offsets {0}.
GRIDKIT_API int get_node_graph(const dense2D<unsigned>& connectM, dense1D<unsigned, 16>& offsets,
                               dense1D<unsigned, 16>& neighbours);
// Face-connected components of a neighbour matrix: every element once in `elements`, grouped by
// component; component k is elements[offsets[k]] up to elements[offsets[k+1]]. Components are
// numbered by their smallest element and filled breadth-first (rows in order). Entries not below
// the column count (NULL_INDEX included) are no neighbours. 0 or ERR_ALLOCATION.
GRIDKIT_API int get_subdomains(const dense2D<unsigned>& neighbors, dense1D<unsigned, 16>& elements,
                               dense1D<unsigned, 16>& offsets);
// The same, with both matrices replaced by copies whose columns are grouped by component and the
// neighbour entries renamed to the new columns. -1 (nothing changed) when the two matrices have
// different column counts; ERR_ALLOCATION empties both matrices and the offsets.
GRIDKIT_API int get_subdomains(dense2D<unsigned>& connectM, dense2D<unsigned>& neighbors,
                               dense1D<unsigned, 16>& offsets);
// Groups the columns of a mixed connectivity in place by node count (entries before the first
// NULL_INDEX), decreasing, ties in former column order; columns without nodes are dropped.
// node_counts/group_ends: one entry per group, the end being one past its last column ({NULL_INDEX}
// and {0} when no column has nodes). new_positions[e] = new column of former column e, NULL_INDEX
// when dropped. A non-empty neighbour matrix moves along and its entries below the column count
// are renamed through new_positions. -1 (nothing changed) when a non-empty neighbour matrix has
// another column count; otherwise 0 (allocation failures are not reported).
GRIDKIT_API int sort_elfes(dense2D<unsigned>& connectM, dense2D<unsigned>& neighbors, dense1D<unsigned, 16>& node_counts,
                           dense1D<unsigned, 16>& group_ends, dense1D<unsigned, 16>& new_positions);
GRIDKIT_API int sort_elfes(dense2D<unsigned>& connectM, dense1D<unsigned, 16>& node_counts,
                           dense1D<unsigned, 16>& group_ends, dense1D<unsigned, 16>& new_positions);

// ============================================================================================
// Quality: shape qualities
// ============================================================================================

// One value per element column: 1 for the equilateral element of its kind, towards 0 for flat or
// needle-like ones, 0 or negative for degenerate or inverted ones. Linear types only: ET_EDGE2
// (always 1), ET_TRIA3, ET_QUAD4, ET_FACE_MIXED, ET_TETRA4, ET_PYRAMID5, ET_WEDGE6, ET_HEXA8,
// ET_SOLID_MIXED (by row count: 4, 5, 6, else 8 nodes; validated as that pure type, so no nulls).
// Tetrahedra are valid when node 3 lies opposite to (P1-P0) x (P2-P0); hexahedra and wedges when
// their bottom face turns counter-clockwise seen from the top. Faces over fewer than 3 rows use
// the signed planar formulas, over 3 rows (or more: the first three are read) the unsigned ones.
// Components a coordinate matrix lacks read as 0: solids over 2-row coordinates are flat and get 0.
// A connectivity with no rows or no columns gives 0 for every column.
// Status: 0; -2 connectivity does not fit the type or a node is >= pos.cols; -3 unsupported type
// (quadratic types included); ERR_ALLOCATION. On failure `qualities` has size 0.
GRIDKIT_API int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type,
                                dense1D<double, 16>& qualities);
// Several connectivities, one type each; values concatenated in order. Connectivities without
// entries are skipped and do not advance the write position: their column slots stay at the end,
// at 0. Status: -3 connect_begin after connect_end, -4 types.size differs from the count, else
// the first failing connectivity's status as above (-2, -3).
GRIDKIT_API int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                                const dense2D<unsigned>* connect_end, const dense1D<int, 16>& types,
                                dense1D<double, 16>& qualities);
// As above, then feeds all values to `hist`, on success only (on failure it is untouched).
GRIDKIT_API int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                                const dense2D<unsigned>* connect_end, const dense1D<int, 16>& types, histogram& hist);
GRIDKIT_API int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type,
                                histogram& hist);

// ============================================================================================
// Quality: edge qualities
// ============================================================================================

GRIDKIT_API int edge_quality(double L, double h1, double h2, double& q);
GRIDKIT_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                               const dense2D<unsigned>* connect_end, const dense1D<int, 16>& types,
                               const dense1D<double, 16>& sizes, histogram& hist, dense2D<unsigned>& edges);
GRIDKIT_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                               const dense2D<unsigned>* connect_end, const dense1D<int, 16>& types,
                               const dense2D<double>& metrics, histogram& hist, dense2D<unsigned>& edges);
GRIDKIT_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type,
                               const dense1D<double, 16>& sizes, histogram& hist, dense2D<unsigned>& edges);
GRIDKIT_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type,
                               const dense2D<double>& metrics, histogram& hist, dense2D<unsigned>& edges);

// ============================================================================================
// Metrics: single tensors
// ============================================================================================
// Tensors are packed upper triangles: (m11, m12, m22) and (m11, m12, m22, m13, m23, m33). A size h
// stands for (1/h^2) I. Eigenvalues come back ascending, unit eigenvectors as matrix columns.

// 2-D: closed form (false when a value is not finite; both outputs are written anyway).
// 3-D: LAPACK dspev; false when the solver fails, when an entry is not finite (outputs NaN, the
// solver is not called) or when an eigenvalue overflows.
GRIDKIT_API bool eigen_pairs(const symmetric_fixed<double, 2>& M, vector_fixed<double, 2>& eigen_values,
                             matrix_fixed<double, 2, 2>& eigen_vectors);
GRIDKIT_API bool eigen_pairs(const symmetric_fixed<double, 3>& M, vector_fixed<double, 3>& eigen_values,
                             matrix_fixed<double, 3, 3>& eigen_vectors);
// Generalized problem B v = lambda A v; false (outputs untouched) unless A is positive definite
// and the reduced standard problem is solved.
GRIDKIT_API bool eigen_pairs(const symmetric_fixed<double, 2>& A, const symmetric_fixed<double, 2>& B,
                             vector_fixed<double, 2>& eigen_values, matrix_fixed<double, 2, 2>& eigen_vectors);
GRIDKIT_API bool eigen_pairs(const symmetric_fixed<double, 3>& A, const symmetric_fixed<double, 3>& B,
                             vector_fixed<double, 3>& eigen_values, matrix_fixed<double, 3, 3>& eigen_vectors);
// True iff the eigenvalues can be computed and the smallest is > 0 (NaN/inf entries: false).
GRIDKIT_API bool is_valid_metric(const symmetric_fixed<double, 2>& M);
GRIDKIT_API bool is_valid_metric(const symmetric_fixed<double, 3>& M);
// (1/h^2) I; the zero tensor for h <= 0. The plane forms give T^T (1/h^2) T (zero for h <= 0 or
// NaN) and T^T M3 T, T holding the plane's two spanning vectors as columns.
GRIDKIT_API void metric_iso_to_aniso(double h, symmetric_fixed<double, 2>& M);
GRIDKIT_API void metric_iso_to_aniso(double h, symmetric_fixed<double, 3>& M);
GRIDKIT_API void metric_iso_to_aniso2d(double h, const matrix_fixed<double, 3, 2>& T, symmetric_fixed<double, 2>& M2);
GRIDKIT_API void metric_aniso3d_to_aniso2d(const symmetric_fixed<double, 3>& M3, const matrix_fixed<double, 3, 2>& T,
                                           symmetric_fixed<double, 2>& M2);
// Clamps the eigenvalues to [1/hmax^2, 1/hmin^2] (the lower limit wins when they cross). Checks in
// order: hmin <= 0 with hmax == DBL_MAX -> 0 (no bound); hmin not finite -> -2; hmax not finite
// -> -3. Returns 1 when M was rewritten, 0 when left bit-for-bit untouched; a tensor that cannot be
// decomposed becomes (1/hmin^2) I. Limits beyond the largest double are taken as that double.
GRIDKIT_API int bound_metric(symmetric_fixed<double, 2>& M, double hmin, double hmax);
GRIDKIT_API int bound_metric(symmetric_fixed<double, 3>& M, double hmin, double hmax);
// Intersection (smaller size in every direction) and union (larger size) of two metrics, built on
// their common eigenvectors. False when M1 is not positive definite or the result would be
// degenerate (eigenvalue ratio beyond 1e24, zero or overflowing); M then receives a copy of M1.
// M may be one of the inputs.
GRIDKIT_API bool minimum_metric(const symmetric_fixed<double, 2>& M1, const symmetric_fixed<double, 2>& M2,
                                symmetric_fixed<double, 2>& M);
GRIDKIT_API bool minimum_metric(const symmetric_fixed<double, 3>& M1, const symmetric_fixed<double, 3>& M2,
                                symmetric_fixed<double, 3>& M);
GRIDKIT_API bool maximum_metric(const symmetric_fixed<double, 2>& M1, const symmetric_fixed<double, 2>& M2,
                                symmetric_fixed<double, 2>& M);
GRIDKIT_API bool maximum_metric(const symmetric_fixed<double, 3>& M1, const symmetric_fixed<double, 3>& M2,
                                symmetric_fixed<double, 3>& M);

// ============================================================================================
// Metrics: fields
// ============================================================================================
// A size field is one h per node (valid: finite and > 0); a metric field has one packed tensor per
// column, 3 rows in 2-D and 6 in 3-D (valid: is_valid_metric).

// Index of the first invalid entry, or the field's size (vector size, column count) when all are
// valid; list forms give the position in `indices` of the first entry that is out of range or
// invalid. A matrix whose row count is neither 3 nor 6 gives 0.
GRIDKIT_API unsigned first_invalid_metric(const dense1D<double, 16>& sizes);
GRIDKIT_API unsigned first_invalid_metric(const dense1D<unsigned, 16>& indices, const dense1D<double, 16>& sizes);
GRIDKIT_API unsigned first_invalid_metric(const dense2D<double>& metrics);
GRIDKIT_API unsigned first_invalid_metric(const dense1D<unsigned, 16>& indices, const dense2D<double>& metrics);
// first_invalid_metric(...) equals the size of the first argument (`cols` for a matrix).
GRIDKIT_API bool are_valid_metrics(const dense1D<double, 16>& sizes);
GRIDKIT_API bool are_valid_metrics(const dense1D<unsigned, 16>& indices, const dense1D<double, 16>& sizes);
GRIDKIT_API bool are_valid_metrics(const dense2D<double>& metrics);
GRIDKIT_API bool are_valid_metrics(const dense1D<unsigned, 16>& indices, const dense2D<double>& metrics);
// Appends the indices of the valid columns (ascending) to `indices` without clearing it. Returns
// how many were appended; -1 (nothing appended) when a non-empty matrix has neither 3 nor 6 rows;
// ERR_ALLOCATION when the list cannot grow (the entries appended so far stay).
GRIDKIT_API int valid_metrics(const dense2D<double>& metrics, dense1D<unsigned, 16>& indices);
// Bounds every size to [hmin, hmax] (NaN and sizes below hmin become hmin) or every tensor with
// bound_metric, in place. Checks in order: empty field -> 0; hmin <= 0 with hmax == DBL_MAX -> 0;
// (matrices) row count not 3 or 6 -> -1; hmin not finite -> -2; hmax not finite -> -3. Returns the
// number of entries changed; list forms first empty `indices`, then list the changed entries
// ascending and return how many could be recorded (an entry whose index could not be stored is
// still bounded).
GRIDKIT_API int bound_metrics(dense1D<double, 16>& sizes, double hmin, double hmax);
GRIDKIT_API int bound_metrics(dense1D<double, 16>& sizes, double hmin, double hmax, dense1D<unsigned, 16>& indices);
GRIDKIT_API int bound_metrics(dense2D<double>& metrics, double hmin, double hmax);
GRIDKIT_API int bound_metrics(dense2D<double>& metrics, double hmin, double hmax, dense1D<unsigned, 16>& indices);
// Repairs the first min(field, defaults) entries and returns how many were replaced: sizes <= 0
// take a positive default (NaN sizes are kept); invalid tensors take (1/h^2) I for a positive
// default h, or a valid default tensor. -1 for a non-empty matrix with neither 3 nor 6 rows; -2 for
// a non-empty default matrix whose row count differs from the repaired one.
GRIDKIT_API int overwrite_invalid_metrics(dense1D<double, 16>& sizes, const dense1D<double, 16>& default_sizes);
GRIDKIT_API int overwrite_invalid_metrics(dense2D<double>& metrics, const dense1D<double, 16>& default_sizes);
GRIDKIT_API int overwrite_invalid_metrics(dense2D<double>& metrics, const dense2D<double>& default_metrics);
// Column i of the (not resized) output becomes the tensor of sizes[i]; later columns are kept.
// All empty -> 0. Plain forms: output with 3 (6) rows and enough columns, else -2. Projecting forms:
// -1 for metrics3d without 6 rows; -2 for bases without 6 rows and exactly one column per entry; -3
// for an output without 3 rows and enough columns. Bases hold the two tangents of each node in rows
// 0-2 and 3-5.
GRIDKIT_API int metrics_iso_to_aniso2d(const dense1D<double, 16>& sizes, dense2D<double>& metrics);
GRIDKIT_API int metrics_iso_to_aniso3d(const dense1D<double, 16>& sizes, dense2D<double>& metrics);
GRIDKIT_API int metrics_iso_to_aniso2d(const dense1D<double, 16>& sizes, const dense2D<double>& bases,
                                       dense2D<double>& metrics2d);
GRIDKIT_API int metrics_aniso3d_to_aniso2d(const dense2D<double>& metrics3d, const dense2D<double>& bases,
                                           dense2D<double>& metrics2d);

// ============================================================================================
// Metrics: size shock
// ============================================================================================

GRIDKIT_API int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense1D<double, 16>& sizes,
                        dense1D<double, 16>& shock);
GRIDKIT_API int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense2D<double>& metrics,
                        dense1D<double, 16>& shock);

// ============================================================================================
// Formats: MEDIT
// ============================================================================================

// MEDIT formatted mesh file (text, "%E" coordinates with the C library's exponent width): the
// vertices, then one section per element type present, in element_type order (two types that
// share a keyword give two sections). Elements are reduced to their corners; pyramids and wedges
// are written as degenerate hexahedra; ET_FACE_MIXED / ET_SOLID_MIXED are split by shape. The
// reference of an element is the position of its matrix in [first, last).
// Checks, in order, all before the file is created: -2 pos has 0 or more than 3 rows; -4 first
// past last; -5 range size differs from FEtypes.size; -3 a matrix fails check_IDs against the
// node count (a non-empty matrix whose type is not an element_type value fails too). Then -1 when
// the file can't be opened, ERR_ALLOCATION when a mixed matrix can't be copied. Write errors are
// not reported.
GRIDKIT_API int medit_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>* first,
                             const dense2D<unsigned>* last, const dense1D<int, 16>& FEtypes);
GRIDKIT_API int medit_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                             element_type FE_type);
GRIDKIT_API int medit_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM1,
                             const dense2D<unsigned>& connectM2, element_type FE_type1, element_type FE_type2);
// The reference written is each element's flag; elements flagged NULL_INDEX are left out (and not
// checked). Empty connectM: 0 at once, no file. -5 flags.size differs from the column count; -6
// the grouped copy can't be allocated; then the range form's codes. Large flag values cost no
// memory (elements are grouped by sorting, not by one matrix per flag value).
GRIDKIT_API int medit_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                             element_type FE_type, const dense1D<unsigned, 16>& flags);
// Solution files: header "dim 1 n 2" then the values "%E " eight per line (a last, possibly
// empty, line holds the rest); "dim rows cols 2" then one line per column; tensors: "2|3 rows
// cols 2" from 3 or 6 rows, components as stored. -1 when the file can't be opened; the tensor
// writer opens first and then returns -2 for another row count, leaving an empty file.
GRIDKIT_API int medit_scalar(const char* filename, unsigned dim, const dense1D<double, 16>& sol);
GRIDKIT_API int medit_vector(const char* filename, unsigned dim, const dense2D<double>& sol);
GRIDKIT_API int medit_tensor(const char* filename, const dense2D<double>& sol);

// ============================================================================================
// Formats: VTK
// ============================================================================================

// Appends the VTK cells of one matrix: per element the linear cell (tetrahedra as 0 1 3 2), then,
// when the matrix has more rows than corners, a poly-vertex cell (type 2) of the other nodes.
// -1 the mixed layout is wrong or fewer rows than corners; -2 no VTK cell for the type (also any
// value outside element_type); ERR_ALLOCATION with the lists unchanged.
GRIDKIT_API int vtk_convert(const dense2D<unsigned>& connectM, element_type FE_type, unsigned& nbr_cells,
                            dense1D<unsigned, 16>& cells, dense1D<unsigned, 16>& cell_types);
// Writes a legacy ASCII unstructured grid ("%f" points, 2-D padded with 0) to an open stream,
// which is neither flushed nor closed. -1 null stream; -2 pos has neither 2 nor 3 rows; -4 the
// cell list holds fewer than nbr_cells complete cells (nothing is written).
GRIDKIT_API int vtk_output(std::FILE* stream, const dense2D<double>& pos, unsigned nbr_cells,
                           const dense1D<unsigned, 16>& cells, const dense1D<unsigned, 16>& cell_types);
// File forms: the file is opened first (-1), so every later failure leaves it empty: -2 pos rows,
// -4 first past last, -5 range size, -3 check_IDs against the node count, then vtk_convert's code
// for a family without VTK cells. Mixed types are split by shape as in medit_output.
GRIDKIT_API int vtk_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>* first,
                           const dense2D<unsigned>* last, const dense1D<int, 16>& FEtypes);
GRIDKIT_API int vtk_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                           element_type FE_type);
GRIDKIT_API int vtk_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM1,
                           const dense2D<unsigned>& connectM2, element_type FE_type1, element_type FE_type2);

// ============================================================================================
// Formats: EnSight
// ============================================================================================

// EnSight ASCII geometry with node and element ids in fixed-width columns ("%8d", "%12.5e"); one
// part per matrix, numbered by its position from 1. Empty matrices and types without an EnSight
// keyword (ET_NONE, ET_NODE1, ET_EDGE_ANY, the mixed types, pyramids) write no part but keep their
// number; tetrahedra swap corners 1 and 2; ET_TRIA6 parts list every element twice (corner
// order 0 1 2 5 3 4, then 0 to 5). The file is opened first (-1); later failures leave it empty:
// -2 pos has 0 or more than 3 rows, -4 last before first, -5 range size, -3 a mixed matrix with a
// wrong layout or a matrix with fewer rows than the nodes written. Node indices are not bounded.
GRIDKIT_API int ensight_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>* first,
                               const dense2D<unsigned>* last, const dense1D<int, 16>& FEtypes);
GRIDKIT_API int ensight_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                               element_type FE_type);
GRIDKIT_API int ensight_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM1,
                               const dense2D<unsigned>& connectM2, element_type FE_type1, element_type FE_type2);

// ============================================================================================
// Formats: STL
// ============================================================================================

// Writes the triangles (3-row connectivity) as an ASCII STL file ("solid KVO", facets with "%le"
// numbers) or a binary one (80-byte header "KVO STL Binary", little-endian facet count, float
// normals and vertices, zero attribute). Normals are the unit (P1-P0)x(P2-P0), or 0 for a
// facet of zero area; 2-row coordinates are written with z = 0. The file is created first, so
// a failed check leaves it empty. -1: the file can't be opened or a write failed; -2: pos has
// neither 2 nor 3 rows; -3: connectM fails check_IDs(connectM, ET_TRIA3, pos.cols).
GRIDKIT_API int STL_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                           bool ascii);
// Reads an ASCII STL file (keywords in any case, lines cut every 255 bytes, numbers as "%lg"
// reads them) or, when that fails, a binary one. Coincident vertices become shared nodes:
// exactly equal ones (non-finite vertices never), then those within 5 % of the smallest non-zero
// facet height (merge), after which collapsed facets and unused nodes are removed. When every
// facet is flat, each facet keeps three nodes of its own. pos gets 3 rows, connectM 3 rows;
// nodes are numbered in the order of their first use. -1: the file can't be opened or (binary)
// its header is short; -3: a malformed or missing line, or a short binary read; ERR_ALLOCATION;
// or the status of the merge. After a failure pos and connectM are empty.
GRIDKIT_API int STL_input(const char* filename, dense2D<double>& pos, dense2D<unsigned>& connectM);

// ============================================================================================
// Formats: Wavefront OBJ
// ============================================================================================

// Writes " v x y z " lines (8 digits after the point, z = 0 for 2-row coordinates), then " vt "
// and " vn " lines when texcoords (2 rows) and normals (3 rows) are given, one per node, then
// " f " lines for trias and quads with node references "i/t/n" (1-based; t and n are the node's
// own number, left empty when that list isn't written, so "5//" or "5//5"). The file is created
// first, so a failed check leaves it empty. -1: the file can't be opened or a write failed;
// -2: pos has neither 2 nor 3 rows; -3: normals not 3 x pos.cols; -4: texcoords not
// 2 x pos.cols; -5: trias not 3 rows; -6: quads not 4 rows. Node numbers aren't bounded.
GRIDKIT_API int WavefrontOBJ_output(const char* filename, const dense2D<double>& pos, const dense2D<double>& normals,
                                    const dense2D<double>& texcoords, const dense2D<unsigned>& trias,
                                    const dense2D<unsigned>& quads);
// ET_TRIA3 or ET_QUAD4 faces; any other type writes the nodes only.
GRIDKIT_API int WavefrontOBJ_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                    element_type FE_type);
// Each connectivity goes to the faces of its type (two of one type are written one after the
// other); a connectivity of another type is left out.
GRIDKIT_API int WavefrontOBJ_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM1,
                                    const dense2D<unsigned>& connectM2, element_type FE_type1, element_type FE_type2);
// Reads "v" (3 values or more: the first 3 kept), "vn" (exactly 3), "vt" (1 to 3; the first line
// sets the row count, later lines with another count are dropped) and "f" lines; other lines are
// ignored. A face reference "n", "n/t", "n//m" or "n/t/m" keeps the node only: n - 1, or the
// number of nodes read so far for n = 0 (a negative n wraps around). Faces of 3 nodes go to
// trias, of 4 to quads, others are dropped. -1: the file can't be opened; -2: a line with the
// wrong number of values, a malformed reference (or one beyond 32 bits), or a texture or normal
// reference before any "vt" or "vn" line. The outputs keep what was read before a failing line.
GRIDKIT_API int WavefrontOBJ_input(const char* filename, dense2D<double>& pos, dense2D<double>& normals,
                                   dense2D<double>& texcoords, dense2D<unsigned>& trias, dense2D<unsigned>& quads);

// ============================================================================================
// Formats: readers for the MEDIT and VTK files this library writes
// ============================================================================================
//
// Both readers fill the coordinates and one connectivity per element type found, in ascending
// element_type order, into the caller's range [first, last) of connectivities; FEtypes receives
// one element_type per filled connectivity and, when `references` is not null, references[i]
// receives the reference of every element of connectivity i (MEDIT references; the cell's
// position-independent 0 for VTK). Connectivities of the range beyond FEtypes.size are emptied.
// A range of MESH_FILE_TYPES connectivities is always large enough.
//
// Status: 0 on success; -1 the file can't be opened; -2 the range is given backwards; -3 the
// file holds more element types than the range; -4 the file is malformed (bad keyword, number,
// count, truncated data or node index out of range); ERR_ALLOCATION. On failure every output is
// left empty.

// Largest number of element types a mesh file can hold.
constexpr unsigned MESH_FILE_TYPES = 21;

// Formatted MEDIT mesh ("MeshVersionFormatted" 1 or 2, "Dimension" 2 or 3): Vertices, Edges,
// Triangles, Quadrilaterals, Tetrahedra, Pyramids, Prisms and Hexahedra are read, references kept
// (vertex references are dropped), comments and unknown sections skipped, "End" optional.
// Degenerate hexahedra written for pyramids and wedges come back as hexahedra.
GRIDKIT_API int medit_input(const char* filename, dense2D<double>& pos, dense2D<unsigned>* first,
                            dense2D<unsigned>* last, dense1D<int, 16>& FEtypes, dense1D<unsigned, 16>* references);

// Legacy ASCII VTK "UNSTRUCTURED_GRID" as vtk_output writes it: the linear and higher-order cells
// it emits; a poly-vertex cell following an element is folded back into its higher-order nodes;
// the tetrahedron node swap is undone. pos gets 3 rows. Poly-vertex cells that fit no element
// and cell types the writer does not produce are skipped; POINT_DATA, CELL_DATA and FIELD sections
// end the reading.
GRIDKIT_API int vtk_input(const char* filename, dense2D<double>& pos, dense2D<unsigned>* first,
                          dense2D<unsigned>* last, dense1D<int, 16>& FEtypes, dense1D<unsigned, 16>* references);

}  // namespace gridkit
}  // namespace kvo

#endif  // KVO_GRIDKIT_HPP
