// DumpLBSnapshot: the balancer's latest topology as text.

#include "libryn/loadbal/snapshot.h"

#include <bit>
#include <cstring>
#include <string_view>

#include "host/native.h"
#include "libryn/base/call.h"
#include "libryn/loadbal/loadbal.h"
#include "platform/ryn.h"

namespace {

// Work areas of the module, cleared at each call. The interpreter lock makes them safe: no Python object is created
// while they are in use.
LBSnapshot snapshot_area;
char text_area[16384];

// The text shows the balancer's unsigned figures as signed ones.
SignedDecimal Signed(std::uint32_t figure) { return SignedDecimal(static_cast<std::int32_t>(figure)); }

void AppendPorts(LBPortSet ports, std::string_view suffix, BoundedText* text) {
  for (std::uint32_t word = 0; word < 2; ++word) {
    for (std::uint64_t rest = ports.words[word]; rest != 0; rest &= rest - 1) {
      text->Append(" [");
      text->Append(Decimal(64 * word + static_cast<std::uint32_t>(std::countr_zero(rest))));
      text->Append(suffix);
    }
  }
}

void AppendGroup(std::uint32_t number, const LBGroup& group, BoundedText* text) {
  text->Append("[");
  text->AppendRight(Decimal(number), 3);
  text->Append(" load ");
  text->AppendRight(SignedDecimal(group.load), 3);
  text->Append("] :");
  AppendPorts(group.txPorts, "-TX]", text);
  AppendPorts(group.rxPorts, "-RX]", text);
  text->Append("\n");
}

void AppendVertexHead(const LBVertex& vertex, std::uint32_t edgeCount, std::string_view arrow, BoundedText* text) {
  text->Append("[");
  text->AppendRight(SignedDecimal(vertex.number), 2);
  text->Append(" WID:");
  text->AppendRight(Decimal(vertex.wid), 10);
  text->Append(" Num:");
  text->AppendRight(Signed(edgeCount), 3);
  text->Append(" F:");
  text->AppendRight(Hex(vertex.flags), 8);
  text->Append(arrow);
}

// `label` and its edges, the EMA before the load, which is not their order in the record.
void AppendEdges(std::string_view label, const LBSnapshot& snapshot, std::size_t position, std::uint32_t count,
                 BoundedText* text) {
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto edge = Load<LBEdge>(&snapshot, position + i * sizeof(LBEdge));
    text->Append(label);
    text->AppendRight(SignedDecimal(edge.peer), 2);
    text->Append(" EMA:");
    text->AppendRight(Signed(edge.ema), 3);
    text->Append(" load:");
    text->AppendRight(Signed(edge.load), 3);
    text->Append("]");
  }
  text->Append("\n");
}

void AppendGroups(const LBSnapshot& snapshot, BoundedText* text) {
  std::size_t position = offsetof(LBSnapshot, records);
  for (std::uint32_t i = 0; i < snapshot.groupCount && position + sizeof(LBGroup) <= sizeof(snapshot); ++i) {
    AppendGroup(i, Load<LBGroup>(&snapshot, position), text);
    position += sizeof(LBGroup);
  }
}

void AppendVertices(const LBSnapshot& snapshot, BoundedText* text) {
  std::size_t position = offsetof(LBSnapshot, records) + std::size_t{snapshot.groupCount} * sizeof(LBGroup);
  for (std::uint32_t i = 0; i < snapshot.vertexCount && position + sizeof(LBVertex) <= sizeof(snapshot); ++i) {
    const auto vertex = Load<LBVertex>(&snapshot, position);
    const std::size_t outEdges = position + sizeof(LBVertex);
    const std::size_t inEdges = outEdges + std::size_t{vertex.outCount} * sizeof(LBEdge);
    const std::size_t end = inEdges + std::size_t{vertex.inCount} * sizeof(LBEdge);
    if (end > sizeof(snapshot))
      return;
    AppendVertexHead(vertex, vertex.outCount, "] ->", text);
    AppendEdges(" [to  :", snapshot, outEdges, vertex.outCount, text);
    AppendVertexHead(vertex, vertex.inCount, "] <-", text);
    AppendEdges(" [from:", snapshot, inEdges, vertex.inCount, text);
    position = end;
  }
}

}  // namespace

void AppendSnapshot(const LBSnapshot& snapshot, BoundedText* text) {
  text->Append("\nGroups\n");
  AppendGroups(snapshot, text);
  text->Append("\nVeticies and Edges\n");  // Deliberate: misspelled, part of the format.
  AppendVertices(snapshot, text);
}

PyObject* PyRYN_DumpLBSnapshot(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!ParseArgs(args, &swID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  std::memset(&snapshot_area, 0, sizeof(snapshot_area));
  std::uint32_t length = sizeof(snapshot_area);
  if (const std::uint32_t status = Ryn_DumpLBSnapshot(&swID, &snapshot_area, &length); status != 0)
    return NoneAfter("ValueError: Failed to dump LB topology: %#x.\n", status);

  std::memset(text_area, 0, sizeof(text_area));
  BoundedText text(text_area, sizeof(text_area));
  AppendSnapshot(snapshot_area, &text);
  return AsciiText(text.View()).release();
}
