// The least that a tray program can be: an icon of one colour and a menu of ten entries. It links
// the libraries that the application links.

#include <QApplication>
#include <QMenu>
#include <QSystemTrayIcon>

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  QMenu menu;
  for (int i = 0; i < 10; ++i) menu.addAction(QStringLiteral("Entry"));
  QPixmap pixmap(22, 22);
  pixmap.fill(Qt::black);
  QSystemTrayIcon icon{QIcon(pixmap)};
  icon.setContextMenu(&menu);
  icon.show();
  return QApplication::exec();
}
