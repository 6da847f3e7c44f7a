#include "host/snapshot.h"

#include <bit>
#include <string_view>

#include "host/walks.h"

namespace {

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
template <class EdgeAt>
void AppendEdges(std::string_view label, std::uint32_t count, EdgeAt edgeAt, BoundedText* text) {
  for (std::uint32_t i = 0; i < count; ++i) {
    const LBEdge edge = edgeAt(i);
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
  LBGroups groups(snapshot);
  std::uint32_t number = 0;
  for (LBGroup group; groups.Next(&group);)
    AppendGroup(number++, group, text);
}

void AppendVertices(const LBSnapshot& snapshot, BoundedText* text) {
  LBVertices vertices(snapshot);
  for (LBVertex vertex; vertices.Next(&vertex);) {
    AppendVertexHead(vertex, vertex.outCount, "] ->", text);
    AppendEdges(
        " [to  :", vertex.outCount, [&](std::size_t i) { return vertices.OutEdge(i); }, text);
    AppendVertexHead(vertex, vertex.inCount, "] <-", text);
    AppendEdges(
        " [from:", vertex.inCount, [&](std::size_t i) { return vertices.InEdge(i); }, text);
  }
}

}  // namespace

void AppendSnapshot(const LBSnapshot& snapshot, BoundedText* text) {
  text->Append("\nGroups\n");
  AppendGroups(snapshot, text);
  text->Append("\nVeticies and Edges\n");  // Deliberate: misspelled, part of the format.
  AppendVertices(snapshot, text);
}
