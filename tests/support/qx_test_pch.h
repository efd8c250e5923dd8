#pragma once

#include <QtCore>
#include <QtGui>
#include <QtTest>
