// remedium-sim fleet export: every table as JSON Lines, one object a row with
// its table's name and its columns, streamed row by row; and fleet merge:
// databases ingested apart (a Dask cluster's workers) into one.
#include <sqlite3.h>

#include <map>
#include <set>

#include "explain/story.h"
#include "sim/fleet/db.h"
#include "sim/fleet/fleet.h"
#include "sim/text/text.h"

namespace fleet {
namespace {

void Quote(std::string& out, std::string_view text) {
  out += explain::Json(sim::text::IsUtf8(text) ? std::string(text) : sim::text::EscapeUtf8(text)).dump();
}

// The tables to export: the fleet's, parents first, then any another tool added.
std::vector<std::string> Tables(Db& db) {
  std::vector<std::string> tables;
  std::set<std::string> present;
  Statement list = db.Prepare(
      "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%' "
      "ORDER BY name");
  while (list.Step()) present.insert(std::string(list.Text(0)));
  for (const char* table : kTables) {
    if (present.erase(table)) tables.push_back(table);
  }
  tables.insert(tables.end(), present.begin(), present.end());
  return tables;
}

std::string Identifier(std::string_view name) {
  std::string quoted = "\"";
  for (const char c : name) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

std::vector<std::string> Columns(Db& db, const std::string& schema, const std::string& table) {
  std::vector<std::string> columns;
  Statement info = db.Prepare("PRAGMA " + schema + ".table_info(" + Identifier(table) + ")");
  while (info.Step()) columns.push_back(std::string(info.Text(1)));
  return columns;
}

}  // namespace

int RunExport(const std::string& path, std::ostream& out, std::ostream& err) {
  try {
    Db db(path, Db::Mode::kReadOnly);
    std::string line;
    for (const std::string& table : Tables(db)) {
      Statement rows = db.Prepare("SELECT * FROM " + Identifier(table));
      std::vector<std::string> names;
      for (int i = 0; i < rows.Columns(); ++i) {
        line.clear();
        Quote(line, rows.Name(i));
        names.push_back(line);
      }
      while (rows.Step()) {
        line = "{\"table\":";
        Quote(line, table);
        for (int i = 0; i < rows.Columns(); ++i) {
          line += "," + names[static_cast<size_t>(i)] + ":";
          switch (rows.Type(i)) {
            case SQLITE_INTEGER:
              line += std::to_string(rows.Int(i));
              break;
            case SQLITE_FLOAT:
              line += explain::Json(rows.Real(i)).dump();
              break;
            case SQLITE_NULL:
              line += "null";
              break;
            default:
              Quote(line, rows.Text(i));
          }
        }
        line += "}\n";
        out << line;
      }
    }
    out.flush();
    return 0;
  } catch (const DbError& e) {
    err << "remedium-sim fleet export: " << e.what() << "\n";
    return 2;
  }
}

int RunMerge(const std::string& path, const std::vector<std::string>& parts, std::ostream& out, std::ostream& err) {
  const std::string command = "remedium-sim fleet merge: ";
  // Each table with a row id: the column that names its parent, and the parent.
  struct Link {
    const char* table;
    const char* parentColumn;  // nullptr: reports, matched by hash
    const char* parent;
  };
  static constexpr Link kLinks[] = {
      {"reports", nullptr, nullptr},          {"boots", "report_id", "reports"},
      {"processes", "boot_id", "boots"},      {"cameras", "process_id", "processes"},
      {"events", "camera_id", "cameras"},     {"notes", "camera_id", "cameras"},
      {"recorded_state", "boot_id", "boots"}, {"reading_notes", "report_id", "reports"},
  };
  size_t merged = 0, already = 0;
  try {
    Db db(path);
    for (const std::string& part : parts) {
      // The part's tables checked (and created when it lacks some, as any fleet database would).
      Db(part, Db::Mode::kReadWrite);
      Statement attach = db.Prepare("ATTACH DATABASE ? AS part");
      attach.Bind(1, part).Run();
      try {
        Transaction transaction(db, "BEGIN IMMEDIATE");
        // The part's ids moved past the database's, so that a row keeps its parent.
        std::map<std::string, int64_t> offset;
        for (const Link& link : kLinks) {
          Statement max = db.Prepare("SELECT COALESCE(MAX(rowid), 0) FROM main." + Identifier(link.table));
          max.Step();
          offset[link.table] = max.Int(0);
        }
        Statement count = db.Prepare("SELECT COUNT(*) FROM part.reports");
        count.Step();
        const int64_t partReports = count.Int(0);
        for (const Link& link : kLinks) {
          const std::vector<std::string> columns = Columns(db, "main", link.table);
          std::string into, select;
          for (const std::string& column : columns) {
            into += (into.empty() ? "" : ", ") + Identifier(column);
            select += select.empty() ? "" : ", ";
            if (column == "id") {
              select += "id + " + std::to_string(offset[link.table]);
            } else if (link.parentColumn && column == link.parentColumn) {
              select += column + " + " + std::to_string(offset[link.parent]);
            } else {
              select += Identifier(column);
            }
          }
          std::string sql = "INSERT INTO main." + Identifier(link.table) + " (" + into + ") SELECT " + select +
                            " FROM part." + Identifier(link.table);
          if (!link.parentColumn) {
            sql += " WHERE hash NOT IN (SELECT hash FROM main.reports)";
          } else {
            // Only the rows of reports this part adds: their parents are the rows just inserted.
            const std::string moved = std::string(link.parentColumn) + " + " + std::to_string(offset[link.parent]);
            sql += " WHERE " + moved + " IN (SELECT id FROM main." + link.parent + " WHERE id > " +
                   std::to_string(offset[link.parent]) + ")";
          }
          sql += " ORDER BY rowid";
          db.Exec(sql);
          if (!link.parentColumn) {
            const int64_t added = sqlite3_changes(db.Handle());
            merged += static_cast<size_t>(added);
            already += static_cast<size_t>(partReports - added);
          }
        }
        db.Exec("INSERT OR REPLACE INTO main.files SELECT * FROM part.files");
        transaction.Commit();
      } catch (...) {
        db.Exec("DETACH DATABASE part");
        throw;
      }
      db.Exec("DETACH DATABASE part");
    }
  } catch (const DbError& e) {
    err << command << e.what() << "\n";
    return 2;
  }
  out << parts.size() << " part" << (parts.size() == 1 ? "" : "s") << ": " << merged << " reports merged, " << already
      << " already in the database\n";
  return 0;
}

}  // namespace fleet
